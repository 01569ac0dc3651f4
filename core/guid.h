#pragma once

#include <cstdint>
#include <cstring>

namespace nw {

/// A 16-byte identifier in the Windows GUID memory layout (the core passes these by address).
struct Guid {
  uint32_t Data1;
  uint16_t Data2;
  uint16_t Data3;
  uint8_t Data4[8];
};
static_assert(sizeof(Guid) == 16);

inline bool operator==(const Guid& a, const Guid& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

/// The identity under which netwarden registers with the core and unregisters.
inline constexpr Guid PointProductId = {
    0xEFDC4955, 0x59FD, 0x43CA, {0x95, 0xBA, 0x5D, 0xE8, 0x72, 0x72, 0x12, 0x46}};
/// IControl, handed out by IRegisterPointProduct::Register.
inline constexpr Guid ControlInterfaceId = {
    0x9181CD33, 0x2825, 0x4A7F, {0xB7, 0xC5, 0x84, 0xF8, 0xD8, 0x2F, 0x35, 0x42}};
/// IPolicyManager, handed out by IControl::GetPolicyManager.
inline constexpr Guid PolicyManagerInterfaceId = {
    0x44EEFC7C, 0xA76A, 0x4AF4, {0xAB, 0xD9, 0xC9, 0x33, 0xCA, 0xB6, 0x73, 0x61}};
/// IHighPriorityIpListControl, handed out by IControl::GetHighPriorityIpListControl.
inline constexpr Guid HighPriorityIpListInterfaceId = {
    0xA68CACD6, 0x7AA6, 0x4B2A, {0x9D, 0x13, 0xA3, 0x4F, 0xD8, 0xD5, 0x0D, 0xDF}};
/// IGlobalConfigAndStateInfo, handed out by IControl::GetGlobalConfigAndStateInfo.
inline constexpr Guid GlobalConfigAndStateInfoInterfaceId = {
    0x4A1C01EA, 0x72D8, 0x46AA, {0x91, 0x36, 0xC4, 0xF3, 0x3B, 0x2C, 0x1C, 0x92}};
/// IGlobalConfigBuilder, handed out by IControl::GetGlobalConfigBuilder.
inline constexpr Guid GlobalConfigBuilderInterfaceId = {
    0x9D164AFA, 0xC50C, 0x4EA6, {0xA4, 0xCA, 0x0D, 0xC4, 0xF2, 0x94, 0x66, 0xED}};

/// IIpConfig, handed out by IControl::GetIpConfigChanged.
inline constexpr Guid IpConfigInterfaceId = {
    0x01A4D9AD, 0x2547, 0x4337, {0xAA, 0x45, 0x4F, 0xF4, 0xD6, 0x53, 0x6C, 0xCC}};
/// IConnectionTable, handed out by IControl::GetConnectionTable.
inline constexpr Guid ConnectionTableInterfaceId = {
    0x19D3E008, 0xE714, 0x4475, {0x8B, 0x1B, 0x76, 0x03, 0xE3, 0xCF, 0x49, 0xC4}};
/// IOpenedEndpointTable, handed out by IControl::GetOpenedEndpointTable.
inline constexpr Guid OpenedEndpointTableInterfaceId = {
    0xE2FD855A, 0x4CBC, 0x4B2C, {0x8B, 0xB7, 0xA9, 0x15, 0xEC, 0x58, 0xF5, 0x71}};
/// IActiveProcesses, handed out by IControl::GetActiveProcesses.
inline constexpr Guid ActiveProcessesInterfaceId = {
    0xB75924EF, 0x1F3B, 0x4568, {0xA3, 0xE6, 0xD8, 0x9F, 0xF2, 0xC1, 0x0B, 0xBB}};

}  // namespace nw
