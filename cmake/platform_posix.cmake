# The emulated Windows host: every platform facility driven by the host state file.
find_package(PkgConfig REQUIRED)
find_package(nlohmann_json 3.10 REQUIRED)
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
pkg_check_modules(UUID REQUIRED IMPORTED_TARGET uuid)
# The XML reader's parser.
find_package(LibXml2 REQUIRED)

add_library(nw_debug_log STATIC platform/posix/debug_log_posix.cpp)
target_include_directories(nw_debug_log PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(nw_debug_log PUBLIC nw_base)

add_library(nw_host_state STATIC sim/host/host_state.cpp sim/common/json_util.cpp
  sim/common/fault_rules.cpp
  sim/common/atomic_file_posix.cpp
  sim/common/read_file_posix.cpp
  sim/host/host_clock.cpp
  sim/host/host_services.cpp)
target_include_directories(nw_host_state PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(nw_host_state PUBLIC nlohmann_json::nlohmann_json nw_base)
target_link_libraries(nw_host_state PUBLIC nw_debug_log)

add_library(nw_platform STATIC
  platform/posix/paths_posix.cpp
  platform/posix/library_posix.cpp
  platform/posix/registry_posix.cpp
  platform/posix/signature_posix.cpp
  platform/posix/process_posix.cpp
  platform/posix/uuid_posix.cpp
  platform/posix/standard_output_posix.cpp
  platform/posix/clock_posix.cpp
  platform/posix/last_error_posix.cpp
  platform/posix/service_manager_posix.cpp
  platform/posix/net_config_posix.cpp
  platform/posix/named_mutex_posix.cpp
  platform/posix/os_version_posix.cpp
  platform/posix/self_protection_posix.cpp
  platform/posix/xml_reader_posix.cpp
  platform/system_library.cpp)
target_include_directories(nw_platform PUBLIC ${CMAKE_SOURCE_DIR})
target_link_libraries(nw_platform PUBLIC nw_debug_log nw_host_state OpenSSL::Crypto PkgConfig::UUID
  LibXml2::LibXml2 ${CMAKE_DL_LIBS})
