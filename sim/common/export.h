#pragma once

// The entry points a simulated product library exports. Everything else stays inside the
// library: the builds hide all other symbols, so two libraries that carry copies of the same
// shared code never bind to each other's.

#if defined(_WIN32)
#define NW_SIM_EXPORT extern "C" __declspec(dllexport)
#else
#define NW_SIM_EXPORT extern "C" __attribute__((visibility("default")))
#endif
