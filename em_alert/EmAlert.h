// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

class CIExtensionModule;

/// What the module tells the agent about itself. The agent owns the record and fixes its layout (little-endian, no
/// padding); the module writes the fields that carry a comment and leaves all other bytes as the agent passed them.
#pragma pack(push, 1)
struct _ExtensionModuleProperties {
    std::uint32_t size;  ///< bytes that the agent allocated; at least 246, read only
    std::uint8_t agentData4[4];
    std::uint8_t capabilities;  ///< bits 0 and 1 are set, the others kept
    std::uint8_t agentData9[12];
    std::uint8_t capabilities2;  ///< bits 0 and 1 are set, the others kept
    std::uint8_t agentData22[4];
    std::uint32_t property26;  ///< 100
    std::uint8_t agentData30[12];
    std::uint32_t property42;       ///< 2
    char moduleName[16];            ///< "EM_ALERT", NUL-padded
    std::uint8_t reservedText[80];  ///< zero
    std::uint16_t reserved142;      ///< zero
    std::uint8_t reserved144;       ///< zero
    std::uint8_t reserved145;       ///< zero
    char moduleDescription[96];     ///< "Alert handling module", NUL-padded
    std::uint16_t reserved242;      ///< zero
    std::uint8_t reserved244;       ///< zero
    std::uint8_t reserved245;       ///< zero
};
#pragma pack(pop)

static_assert(offsetof(_ExtensionModuleProperties, size) == 0);
static_assert(offsetof(_ExtensionModuleProperties, agentData4) == 4);
static_assert(offsetof(_ExtensionModuleProperties, capabilities) == 8);
static_assert(offsetof(_ExtensionModuleProperties, agentData9) == 9);
static_assert(offsetof(_ExtensionModuleProperties, capabilities2) == 21);
static_assert(offsetof(_ExtensionModuleProperties, agentData22) == 22);
static_assert(offsetof(_ExtensionModuleProperties, property26) == 26);
static_assert(offsetof(_ExtensionModuleProperties, agentData30) == 30);
static_assert(offsetof(_ExtensionModuleProperties, property42) == 42);
static_assert(offsetof(_ExtensionModuleProperties, moduleName) == 46);
static_assert(offsetof(_ExtensionModuleProperties, reservedText) == 62);
static_assert(offsetof(_ExtensionModuleProperties, reserved142) == 142);
static_assert(offsetof(_ExtensionModuleProperties, reserved144) == 144);
static_assert(offsetof(_ExtensionModuleProperties, reserved145) == 145);
static_assert(offsetof(_ExtensionModuleProperties, moduleDescription) == 146);
static_assert(offsetof(_ExtensionModuleProperties, reserved242) == 242);
static_assert(offsetof(_ExtensionModuleProperties, reserved244) == 244);
static_assert(offsetof(_ExtensionModuleProperties, reserved245) == 245);
static_assert(sizeof(_ExtensionModuleProperties) == 246);

#if defined(EM_ALERT_BUILD)
#define EM_ALERT_API __attribute__((visibility("default")))
#else
#define EM_ALERT_API
#endif

/// The four functions that an agent resolves by name with dlsym. They are not meant to be called concurrently; the
/// order is create, start, stop, delete. After EM_Delete a new EM_Create makes a fresh module.
extern "C" {

/// Creates the single module object, or hands out the existing one (which is not a failure).
/// @param out  receives the module, null on failure
/// @param agentParameter  not used
/// @return false when no module could be made. Memory exhaustion in the construction leaves as std::bad_alloc.
EM_ALERT_API bool EM_Create(CIExtensionModule** out, void* agentParameter);

/// Destroys the module object. Lets no exception out.
/// @return false when there is none or its destruction failed
EM_ALERT_API bool EM_Delete();

/// @return "EM_ALERT"
EM_ALERT_API const char* EM_GetModuleName();

/// Announces a set-up action (1 backup, 2 restore, 3 convert, 4 clean-up). The module has no work for any of them.
/// @return 1, also for an unknown action
EM_ALERT_API int EM_SetupAction(unsigned int action);
}
