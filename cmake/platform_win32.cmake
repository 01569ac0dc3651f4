# The Windows host: every platform facility is the Win32 call it names.

# Windows 7 is the oldest host supported. Every target sees the same Windows headers settings.
add_compile_definitions(_WIN32_WINNT=0x0601 UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX)

# nlohmann-json is header-only and comes from the build machine's /usr/include. The MinGW
# compiler must see that one directory and nothing else from there (a Linux system header would
# shadow the target's), so it gets an include directory of its own in the build tree.
find_path(NW_NLOHMANN_JSON_PARENT nlohmann/json.hpp
  PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT NW_NLOHMANN_JSON_PARENT)
  message(FATAL_ERROR "nlohmann/json.hpp not found under /usr/include (install nlohmann-json3-dev)")
endif()
set(NW_NLOHMANN_JSON_INCLUDE ${CMAKE_BINARY_DIR}/third_party/nlohmann_json/include)
file(MAKE_DIRECTORY ${NW_NLOHMANN_JSON_INCLUDE})
file(CREATE_LINK ${NW_NLOHMANN_JSON_PARENT}/nlohmann ${NW_NLOHMANN_JSON_INCLUDE}/nlohmann
  SYMBOLIC COPY_ON_ERROR)
add_library(nlohmann_json::nlohmann_json INTERFACE IMPORTED GLOBAL)
set_target_properties(nlohmann_json::nlohmann_json PROPERTIES
  INTERFACE_INCLUDE_DIRECTORIES ${NW_NLOHMANN_JSON_INCLUDE})

# Debugger output, shared by the program and the simulated libraries. It keeps the link interface
# of the emulated host's version so that a target builds the same way on both hosts.
add_library(nw_debug_log STATIC platform/win32/debug_log_win32.cpp)
target_include_directories(nw_debug_log PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(nw_debug_log PUBLIC nw_base)

add_library(nw_platform STATIC
  platform/win32/library_win32.cpp
  platform/win32/registry_win32.cpp
  platform/win32/signature_win32.cpp
  platform/win32/process_win32.cpp
  platform/win32/uuid_win32.cpp
  platform/win32/standard_output_win32.cpp
  platform/win32/clock_win32.cpp
  platform/win32/last_error_win32.cpp
  platform/win32/service_manager_win32.cpp
  platform/win32/net_config_win32.cpp
  platform/win32/named_mutex_win32.cpp
  platform/win32/os_version_win32.cpp
  platform/win32/self_protection_win32.cpp
  platform/win32/xml_reader_win32.cpp
  platform/system_library.cpp)
target_include_directories(nw_platform PUBLIC ${CMAKE_SOURCE_DIR})
# wintrust is bound at run time from the system directory, so it is not linked.
target_link_libraries(nw_platform PUBLIC nw_debug_log advapi32 ws2_32 rpcrt4)
# COM, for the network configuration; shlwapi for the XML reader's file stream (xmllite itself
# is bound at run time from the system directory).
target_link_libraries(nw_platform PUBLIC ole32 shlwapi)
