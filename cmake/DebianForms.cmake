# What Debian wants to see in a package, over what `cmake --install` has put into it: run by CPack, before it packs.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
execute_process(COMMAND gzip -9n ${share}/man/man1/em-alert-agent.1 COMMAND_ERROR_IS_FATAL ANY)
file(MAKE_DIRECTORY ${share}/doc/${CPACK_PACKAGE_NAME})
file(RENAME ${share}/doc/em_alert/LICENSE ${share}/doc/${CPACK_PACKAGE_NAME}/copyright)
