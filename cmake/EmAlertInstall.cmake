# SPDX-License-Identifier: Apache-2.0

# What `cmake --install` puts where, and the Debian package that is made of it (`cpack`).
include(CMakePackageConfigHelpers)

# Everything that is no program goes into a folder of its own, so that "sip" or "platform" stand in nobody's way.
set(library_dir ${CMAKE_INSTALL_LIBDIR}/em_alert)
set(header_dir ${CMAKE_INSTALL_INCLUDEDIR}/em_alert)
set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/em_alert)

add_library(em_headers INTERFACE)
target_compile_features(em_headers INTERFACE cxx_std_20)
target_link_libraries(em_sip PUBLIC em_headers)
set_target_properties(em_headers PROPERTIES EXPORT_NAME headers)
set_target_properties(em_sip PROPERTIES EXPORT_NAME sip)
set_target_properties(em_alert PROPERTIES EXPORT_NAME module)
install(TARGETS em_headers em_sip em_alert EXPORT em_alert
  ARCHIVE DESTINATION ${library_dir} INCLUDES DESTINATION ${header_dir}
  # A folder deeper than where CPack takes a module for a library, and adds scripts that call ldconfig.
  LIBRARY DESTINATION ${library_dir}/modules)
install(FILES em_alert/EmAlert.h em_alert/ExtensionModule.h DESTINATION ${header_dir}/em_alert)
install(FILES platform/DebugSink.h DESTINATION ${header_dir}/platform)
# SipJson.h with what it includes, the class that one of its operations fills, and the numbers.
install(FILES sip/SipJson.h sip/Vocabulary.h sip/RapidJsonUtil.h sip/RapidJson.h sip/DataStruct.h DESTINATION ${header_dir}/sip)

install(EXPORT em_alert NAMESPACE em_alert:: FILE em_alert-targets.cmake DESTINATION ${package_dir})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/em_alert-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/em_alert-config.cmake ${CMAKE_CURRENT_BINARY_DIR}/em_alert-config-version.cmake
  DESTINATION ${package_dir})

# For those who build with make or meson.
set(pkgconfig_dir ${CMAKE_INSTALL_DATADIR}/pkgconfig)  # found by cross-compilers as well
file(RELATIVE_PATH prefix_of_pc /${pkgconfig_dir} /)
configure_file(cmake/em_alert.pc.in ${CMAKE_CURRENT_BINARY_DIR}/em_alert.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/em_alert.pc DESTINATION ${pkgconfig_dir})

install(TARGETS em-alert-agent em-alert em-alertd)
install(FILES docs/em-alertd.8 DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
install(FILES service/files/em-alertd.service DESTINATION lib/systemd/system)
install(FILES docs/em-alert-agent.1 ${PROJECT_BINARY_DIR}/man/em-alert.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES command/em-alert.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME em-alert)
# The documents keep their places to each other, for their links.
set(document_dir ${CMAKE_INSTALL_DATADIR}/doc/em-alert)
install(FILES service/files/em-alertd.toml DESTINATION ${document_dir}/examples)
install(PROGRAMS service/files/mdadm-program service/files/smartd-exec DESTINATION ${document_dir}/examples)
install(FILES CHANGELOG.md LICENSE SECURITY.md DESTINATION ${document_dir})
install(DIRECTORY docs DESTINATION ${document_dir} FILES_MATCHING PATTERN *.md PATTERN *.svg PATTERN minimal-host.cpp)

# One package: a host must be built with the headers and the message class of the very version that it loads, and they
# are too small to be worth a package of their own. RapidJSON, which only building a host needs, is a suggestion.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME em-alert)
set(CPACK_PACKAGE_CONTACT "em_alert developers <em-alert@example.net>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "passwd")  # makes the group
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "ca-certificates, monitoring-plugins-basic")
set(CPACK_DEBIAN_PACKAGE_SUGGESTS "monitoring-plugins-contrib, lm-sensors, rapidjson-dev, g++, cmake")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION "A shared library that turns component-status and update events into pending
alerts, beeps on the PC speaker and mails. With it come em-alert, with
which an operator sets it up and tries it, a stand-alone agent for those who
test it, and what is needed to build an agent that loads it; em-alertd watches
the server that it runs on with Monitoring Plugins.")
file(WRITE ${PROJECT_BINARY_DIR}/debian/conffiles "/etc/em-alert/em-alertd.toml\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/debian/conffiles
  ${CMAKE_CURRENT_LIST_DIR}/debian/postinst ${CMAKE_CURRENT_LIST_DIR}/debian/prerm ${CMAKE_CURRENT_LIST_DIR}/debian/postrm)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebianForms.cmake)
include(CPack)
