# What `cmake --install` puts where (GNUInstallDirs): the plug-in and the host libraries
# in the library directory, qvfwd and qvfwctl in the binary directory, the public headers
# under include/Quorvane, the manual pages, qvfwctl's bash completion, a systemd unit
# (Linux) or a launchd property list (macOS), and the default QvFw.conf.plist, which is
# never overwritten when one is already there.
#
# Included by the top directory once every target is defined.

function(qv_install_set_rpath)
  if(APPLE)
    set(origin @loader_path)
  else()
    set(origin $ORIGIN)
  endif()
  file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
  # qvfwctl links none of the project's shared libraries and needs no search path.
  set_target_properties(qvfwd PROPERTIES INSTALL_RPATH "${origin}/${bin_to_lib}")
  # Only the libraries that load others of ours carry a search path.
  set_target_properties(QvFw QvUtil PROPERTIES INSTALL_RPATH "${origin}")
endfunction()

function(qv_install_binaries)
  install(TARGETS qvfwd qvfwctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS QvFw QvUtil QvLog LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  # The CoreFoundation subset is ours on Linux only; macOS brings its own.
  get_target_property(cf_type CoreFoundation TYPE)
  if(cf_type STREQUAL "SHARED_LIBRARY")
    install(TARGETS CoreFoundation LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
  install(FILES
    ${PROJECT_SOURCE_DIR}/host/include/QvPlugin.h
    ${PROJECT_SOURCE_DIR}/src/firewall/include/QvFirewall.h
    ${PROJECT_SOURCE_DIR}/host/include/QvFrame.h
    ${PROJECT_SOURCE_DIR}/host/include/QvControl.h
    ${PROJECT_SOURCE_DIR}/host/include/QvControlErrors.h
    ${PROJECT_SOURCE_DIR}/host/include/QvControlStatus.h
    ${PROJECT_SOURCE_DIR}/host/include/QvIpc.h
    ${PROJECT_SOURCE_DIR}/host/include/QvLog.h
    ${PROJECT_SOURCE_DIR}/host/include/QvUtil.h
    ${PROJECT_SOURCE_DIR}/host/include/QvCFUtil.h
    ${PROJECT_SOURCE_DIR}/host/include/Thread.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/Quorvane)
endfunction()

# The manual pages qvfwctl(8) and qvfwd(8), and qvfwctl's bash completion, which the
# tool writes from its command table every time it is built.
function(qv_install_manuals_and_completion)
  install(FILES ${PROJECT_SOURCE_DIR}/host/qvfwctl/man/qvfwctl.8
                ${PROJECT_SOURCE_DIR}/host/qvfwd/man/qvfwd.8
          DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${QV_CTL_COMPLETION} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME qvfwctl)
endfunction()

function(qv_install_service_files)
  set(dist ${PROJECT_SOURCE_DIR}/host/qvfwd/dist)
  set(out ${CMAKE_BINARY_DIR}/dist)
  configure_file(${dist}/qvfwd.service.in ${out}/qvfwd.service @ONLY)
  configure_file(${dist}/com.quorvane.qvfwd.plist.in ${out}/com.quorvane.qvfwd.plist @ONLY)
  if(APPLE)
    install(FILES ${out}/com.quorvane.qvfwd.plist DESTINATION /Library/LaunchDaemons)
  else()
    install(FILES ${out}/qvfwd.service DESTINATION lib/systemd/system)
  endif()
  install(FILES ${out}/com.quorvane.qvfwd.plist ${out}/qvfwd.service
          DESTINATION ${CMAKE_INSTALL_DATADIR}/quorvane)
endfunction()

function(qv_install_default_configuration)
  set(QV_FW_LOG_PATH ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/log/Quorvane/QvrnCore/ipfw.log)
  set(QV_SYSLOG_CONF /etc/syslog.conf)
  set(conf ${CMAKE_BINARY_DIR}/dist/QvFw.conf.plist)
  configure_file(${PROJECT_SOURCE_DIR}/host/qvfwd/dist/QvFw.conf.plist.in ${conf} @ONLY)
  # The pristine default, beside the unit files: a package copies it into place.
  install(FILES ${conf} DESTINATION ${CMAKE_INSTALL_DATADIR}/quorvane)
  if(QV_PACKAGE)
    return()  # the package's postinst puts it in place, only where none is
  endif()
  # The file holds the stored rules once the firewall runs: install it only where none is.
  install(CODE "
    set(target \"\$ENV{DESTDIR}${QV_CONF_DIR}/QvFw.conf.plist\")
    if(EXISTS \"\${target}\")
      message(STATUS \"Keeping: \${target}\")
    else()
      file(INSTALL DESTINATION \"${QV_CONF_DIR}\" TYPE FILE FILES \"${conf}\")
    endif()")
endfunction()

option(QV_PACKAGE "Lay the install out for a Debian package (scripts/package)" OFF)

function(qv_install_all)
  include(GNUInstallDirs)
  set(QV_CONF_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/Quorvane/QvrnCore)
  qv_install_set_rpath()
  qv_install_binaries()
  qv_install_service_files()
  qv_install_manuals_and_completion()
  qv_install_default_configuration()
endfunction()

qv_install_all()
include(${CMAKE_CURRENT_LIST_DIR}/QvPackage.cmake)
