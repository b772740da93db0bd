#include "transport/platform/platform.h"

namespace {
const Platform* chosen = nullptr;
}

const Platform& active_platform() { return chosen != nullptr ? *chosen : *native_platform(); }

void set_active_platform(const Platform* platform) { chosen = platform; }
