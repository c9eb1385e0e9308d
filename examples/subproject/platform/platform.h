#pragma once

// The host's own platform layer.
const char* hostPlatformName();
