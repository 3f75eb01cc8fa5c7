# SPDX-License-Identifier: Apache-2.0

# The targets under the names that find_package gives them, for a host that adds these sources to its own (add_subdirectory,
# FetchContent).
add_library(em_host INTERFACE)
em_include_files(em_host INTERFACE platform/DebugSink.h)
target_link_libraries(em_host INTERFACE em_alert_interface em_sip)
add_library(em_alert::headers ALIAS em_host)
add_library(em_alert::sip ALIAS em_host)
add_library(em_alert::module ALIAS em_alert)
