#include "collector/json.h"

template class nlohmann::basic_json<>;
