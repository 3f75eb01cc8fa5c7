# SPDX-License-Identifier: Apache-2.0

# What Debian wants to see in a package, over what `cmake --install` has put into it: run by CPack, before it packs.
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})
file(GLOB manuals ${share}/man/man1/*.1 ${share}/man/man8/*.8)
file(WRITE ${documents}/copyright "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/
Upstream-Name: em_alert

Files: *
Copyright: 2026 em_alert developers
License: Apache-2.0
 Licensed under the Apache License, Version 2.0. On Debian systems its text is
 in the file /usr/share/common-licenses/Apache-2.0.
")
# A server is watched as soon as the package is there; the administrator's changes stay.
file(COPY ${documents}/examples/em-alertd.toml DESTINATION ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/etc/em-alert)
file(REMOVE ${documents}/LICENSE)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
file(WRITE ${documents}/changelog.Debian "${CPACK_PACKAGE_NAME} (${CPACK_PACKAGE_VERSION}) unstable; urgency=medium

  * The changes are those of the program itself, in the file changelog.

 -- ${CPACK_PACKAGE_CONTACT}  Wed, 25 Nov 2026 09:00:00 +0000
")
execute_process(COMMAND gzip -9n ${manuals} ${documents}/changelog ${documents}/changelog.Debian
  COMMAND_ERROR_IS_FATAL ANY)
