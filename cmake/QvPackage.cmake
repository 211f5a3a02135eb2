# The Debian package (cpack -G DEB, run by scripts/package): everything `cmake --install`
# puts in place, with the default QvFw.conf.plist under share/quorvane, from where the
# postinst copies it into the configuration directory when none is there. The package
# ships nothing under /etc, so neither an upgrade nor a removal can touch the user's rules.
include(GNUInstallDirs)

set(CPACK_PACKAGE_NAME quorvane-firewall)
set(CPACK_PACKAGE_VERSION ${QV_PACKAGE_VERSION})
if(NOT CPACK_PACKAGE_VERSION)
  set(CPACK_PACKAGE_VERSION 0.1.0)
endif()
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Quorvane firewall plug-in, its daemon qvfwd and qvfwctl")
set(CPACK_PACKAGE_DESCRIPTION
    "qvfwd hosts the Quorvane firewall plug-in, which turns rules into ipfw rules in two sets
and keeps them across restarts; qvfwctl adds, lists and checks rules in the words of ipfw.")
set(CPACK_PACKAGE_CONTACT "Quorvane maintainers <maintainers@localhost>")
set(CPACK_DEBIAN_PACKAGE_SECTION net)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Dependencies as dpkg-shlibdeps finds them; our own libraries are in the package itself.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_INSTALL_FULL_LIBDIR})

set(QV_DEFAULT_CONF ${CMAKE_INSTALL_FULL_DATADIR}/quorvane/QvFw.conf.plist)
set(QV_CONF_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/Quorvane/QvrnCore)
configure_file(${PROJECT_SOURCE_DIR}/host/qvfwd/dist/postinst.in
               ${CMAKE_BINARY_DIR}/dist/debian/postinst @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                                WORLD_READ WORLD_EXECUTE)
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/dist/debian/postinst)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

include(CPack)
