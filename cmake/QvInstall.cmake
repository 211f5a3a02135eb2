# What `cmake --install` puts where: qvfwd and qvfwctl in the binary directory; the
# plug-in and the host libraries in the project's own directory (lib/quorvane), never in
# the system's library directory; where the enforcement tools are built, `ipfw`,
# `ipfw-enforcer`, `ipfw-logd` and the `sysctl` and `killall` that answer for the plug-in
# in lib/quorvane/bin (first on the services' PATH only), with `ipfw` linked into sbin
# for root's console; the compressed manual pages, qvfwctl's bash completion, the systemd
# units (Linux) or the launchd property list (macOS), and the default QvFw.conf.plist,
# which is never overwritten when one is already there. The public headers go to
# include/Quorvane, except in the Debian package, which is the firewall and not a kit.
#
# Included by the top directory once every target is defined.

function(qv_install_set_rpath)
  if(APPLE)
    set(origin @loader_path)
  else()
    set(origin $ORIGIN)
  endif()
  file(RELATIVE_PATH bin_to_lib ${CMAKE_INSTALL_FULL_BINDIR}
       ${CMAKE_INSTALL_PREFIX}/${QV_PRIVATE_DIR})
  # qvfwctl links none of the project's shared libraries and needs no search path.
  set_target_properties(qvfwd PROPERTIES INSTALL_RPATH "${origin}/${bin_to_lib}")
  # Only the libraries that load others of ours carry a search path.
  set_target_properties(QvFw QvUtil PROPERTIES INSTALL_RPATH "${origin}")
endfunction()

function(qv_install_binaries)
  install(TARGETS qvfwd qvfwctl RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(TARGETS QvFw QvUtil QvLog LIBRARY DESTINATION ${QV_PRIVATE_DIR})
  # The CoreFoundation subset is ours on Linux only; macOS brings its own.
  get_target_property(cf_type CoreFoundation TYPE)
  if(cf_type STREQUAL "SHARED_LIBRARY")
    install(TARGETS CoreFoundation LIBRARY DESTINATION ${QV_PRIVATE_DIR})
  endif()
  if(QV_PACKAGE)
    return()
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

# The enforcing ipfw and what runs beside it. The links are made in the build tree and
# installed as links: sysctl and killall beside ipfw (it answers to the name it is run
# as), and sbin/ipfw for the console, relative so that a staged install stays whole.
function(qv_install_enforcement)
  if(NOT TARGET ipfw-nft)
    if(QV_PACKAGE)
      message(FATAL_ERROR "the package is the firewall: it needs ipfw on nftables, which "
                          "needs libnftables-dev and libnetfilter-log-dev (scripts/setup)")
    endif()
    return()
  endif()
  install(TARGETS ipfw-nft ipfw-enforcer ipfw-logd RUNTIME DESTINATION ${QV_PRIVATE_BIN_DIR})
  set(links ${CMAKE_BINARY_DIR}/dist/links)
  file(MAKE_DIRECTORY ${links}/private ${links}/sbin)
  file(CREATE_LINK ipfw ${links}/private/sysctl SYMBOLIC)
  file(CREATE_LINK ipfw ${links}/private/killall SYMBOLIC)
  file(RELATIVE_PATH sbin_to_private ${CMAKE_INSTALL_FULL_SBINDIR}
       ${CMAKE_INSTALL_PREFIX}/${QV_PRIVATE_BIN_DIR})
  file(CREATE_LINK ${sbin_to_private}/ipfw ${links}/sbin/ipfw SYMBOLIC)
  install(FILES ${links}/private/sysctl ${links}/private/killall
          DESTINATION ${QV_PRIVATE_BIN_DIR})
  install(FILES ${links}/sbin/ipfw DESTINATION ${CMAKE_INSTALL_SBINDIR})
endfunction()

# The manual pages qvfwctl(8), qvfwd(8) and ipfw(8), compressed as Debian wants them, and
# qvfwctl's bash completion, which the tool writes from its command table every time it
# is built.
function(qv_install_manuals_and_completion)
  set(pages ${PROJECT_SOURCE_DIR}/host/qvfwctl/man/qvfwctl.8
            ${PROJECT_SOURCE_DIR}/host/qvfwd/man/qvfwd.8)
  if(TARGET ipfw-nft)
    list(APPEND pages ${PROJECT_SOURCE_DIR}/tools/ipfw-nft/man/ipfw.8)
  endif()
  set(compressed "")
  foreach(page IN LISTS pages)
    get_filename_component(name ${page} NAME)
    set(out ${CMAKE_BINARY_DIR}/dist/man/${name}.gz)
    add_custom_command(OUTPUT ${out}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_BINARY_DIR}/dist/man
      COMMAND gzip -9 -n -c ${page} > ${out}
      DEPENDS ${page} VERBATIM)
    list(APPEND compressed ${out})
  endforeach()
  add_custom_target(qv_manuals ALL DEPENDS ${compressed})
  install(FILES ${compressed} DESTINATION ${CMAKE_INSTALL_MANDIR}/man8)
  install(FILES ${QV_CTL_COMPLETION} DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
          RENAME qvfwctl)
endfunction()

function(qv_install_service_files)
  set(dist ${PROJECT_SOURCE_DIR}/host/qvfwd/dist)
  set(out ${CMAKE_BINARY_DIR}/dist)
  set(QV_PRIVATE_FULL_BIN_DIR ${CMAKE_INSTALL_PREFIX}/${QV_PRIVATE_BIN_DIR})
  set(units qvfwd.service ipfw-enforcer.service ipfw-logd.service)
  foreach(unit IN LISTS units)
    configure_file(${dist}/${unit}.in ${out}/${unit} @ONLY)
  endforeach()
  configure_file(${dist}/com.quorvane.qvfwd.plist.in ${out}/com.quorvane.qvfwd.plist @ONLY)
  configure_file(${dist}/logrotate.in ${out}/logrotate @ONLY)
  if(APPLE)
    install(FILES ${out}/com.quorvane.qvfwd.plist DESTINATION /Library/LaunchDaemons)
  elseif(TARGET ipfw-nft)
    install(FILES ${out}/qvfwd.service ${out}/ipfw-enforcer.service ${out}/ipfw-logd.service
            DESTINATION lib/systemd/system)
    install(FILES ${out}/logrotate DESTINATION ${CMAKE_INSTALL_FULL_SYSCONFDIR}/logrotate.d
            RENAME quorvane-firewall)
  endif()
  if(NOT QV_PACKAGE)
    install(FILES ${out}/com.quorvane.qvfwd.plist ${out}/qvfwd.service
            DESTINATION ${CMAKE_INSTALL_DATADIR}/quorvane)
  endif()
endfunction()

function(qv_install_default_configuration)
  set(QV_FW_LOG_PATH ${QV_LOG_DIR}/ipfw.log)
  if(QV_PACKAGE)
    # The logger's routing that the plug-in writes and ipfw-logd reads: beside the
    # configuration, where the service may write and purge finds it.
    set(QV_SYSLOG_CONF ${QV_CONF_DIR}/syslog.conf)
  else()
    set(QV_SYSLOG_CONF /etc/syslog.conf)
  endif()
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
  qv_install_set_rpath()
  qv_install_binaries()
  qv_install_enforcement()
  qv_install_service_files()
  qv_install_manuals_and_completion()
  qv_install_default_configuration()
endfunction()

# Where the installed firewall keeps what it writes; the units and the maintainer
# scripts name the same places.
set(QV_CONF_DIR ${CMAKE_INSTALL_FULL_SYSCONFDIR}/Quorvane/QvrnCore)
set(QV_LOG_DIR ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/log/Quorvane/QvrnCore)
set(QV_STATE_DIR ${CMAKE_INSTALL_FULL_LOCALSTATEDIR}/lib/quorvane)
qv_install_all()
include(${CMAKE_CURRENT_LIST_DIR}/QvPackage.cmake)
