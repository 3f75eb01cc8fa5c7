# SPDX-License-Identifier: Apache-2.0

# find_package(em_alert) gives
#   em_alert::headers  the module's interfaces, on the include path
#   em_alert::sip      the message class, to be linked into the host; with the headers
#   em_alert::module   the module; $<TARGET_FILE:em_alert::module> is what the host loads
include(CMakeFindDependencyMacro)
find_dependency(RapidJSON)
include(${CMAKE_CURRENT_LIST_DIR}/em_alert-targets.cmake)
target_include_directories(em_alert::headers SYSTEM INTERFACE ${RAPIDJSON_INCLUDE_DIRS})
