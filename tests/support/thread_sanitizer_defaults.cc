// OpenSSL is not built with the thread sanitizer, which therefore does not see the atomic flags
// that order its accesses.
extern "C" const char* __tsan_default_suppressions() { return "race:libcrypto.so\n"; }
