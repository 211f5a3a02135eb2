# The Debian package (cpack -G DEB, run by scripts/package): everything `cmake --install`
# puts in place, stripped, with the default QvFw.conf.plist under share/quorvane, from
# where the postinst copies it into the configuration directory when none is there. The
# package ships no file under /etc but its logrotate rule (a conffile), so neither an
# upgrade nor a removal can touch the user's rules; purge removes them.
# The maintainer scripts enable, start, restart and stop the three units through
# deb-systemd-helper and deb-systemd-invoke, as debhelper's would.
if(NOT QV_PACKAGE)
  return()
endif()

set(CPACK_PACKAGE_NAME quorvane-firewall)
set(CPACK_PACKAGE_VERSION ${QV_PACKAGE_VERSION})
if(NOT CPACK_PACKAGE_VERSION)
  set(CPACK_PACKAGE_VERSION 0.1.0)
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "endpoint firewall: ipfw rules enforced through nftables")
set(CPACK_PACKAGE_DESCRIPTION
    "qvfwd hosts the Quorvane firewall plug-in, which turns rules into ipfw
rules in two sets and keeps them across restarts; an ipfw for Linux enforces
them through nftables, its enforcer restores the tables when someone else
removes them, and ipfw-logd writes a log line for every logged packet.
qvfwctl adds, lists and checks rules in the words of ipfw.")
set(CPACK_PACKAGE_CONTACT "Quorvane Firewall Team <firewall-team@quorvane.com>")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
# Dependencies as dpkg-shlibdeps finds them; our own libraries are in the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_INSTALL_PREFIX}/${QV_PRIVATE_DIR})
# The maintainer scripts' helpers.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "init-system-helpers (>= 1.54~)")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "logrotate")

set(dist ${PROJECT_SOURCE_DIR}/host/qvfwd/dist)
set(control ${CMAKE_BINARY_DIR}/dist/debian)
set(QV_DEFAULT_CONF ${CMAKE_INSTALL_FULL_DATADIR}/quorvane/QvFw.conf.plist)
foreach(script postinst prerm postrm)
  configure_file(${dist}/${script}.in ${control}/${script} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                  WORLD_READ WORLD_EXECUTE)
endforeach()
file(WRITE ${control}/conffiles "${CMAKE_INSTALL_FULL_SYSCONFDIR}/logrotate.d/quorvane-firewall\n")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
    ${control}/postinst ${control}/prerm ${control}/postrm ${control}/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The documents Debian asks of every package, and lintian's overrides with their reasons.
set(docs ${CMAKE_BINARY_DIR}/dist/doc)
configure_file(${dist}/changelog.in ${docs}/changelog @ONLY)
execute_process(COMMAND gzip -9 -n -f ${docs}/changelog COMMAND_ERROR_IS_FATAL ANY)
install(FILES ${dist}/copyright ${docs}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_PACKAGE_NAME})
install(FILES ${dist}/lintian-overrides DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides
        RENAME ${CPACK_PACKAGE_NAME})

include(CPack)
