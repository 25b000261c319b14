// Only its precompiled header is of use.
int main() { return 0; }
