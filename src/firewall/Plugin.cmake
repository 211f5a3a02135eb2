# The plug-in, build/lib/libQvFw.so: the manager, the handlers and the entry points on
# top of the rule engine and the configuration. A version script exports the seven entry
# points and the command table, nothing else.
add_library(QvFwPlugin STATIC
  ${CMAKE_CURRENT_LIST_DIR}/FwLogParser.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FwMgr.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FwMgrLogRedirect.cpp
  ${CMAKE_CURRENT_LIST_DIR}/FwMgrWatcher.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Handler.cpp
  ${CMAKE_CURRENT_LIST_DIR}/SyslogRedirection.cpp
  ${PROJECT_SOURCE_DIR}/src/common/source/QvGeneral.cpp)
target_include_directories(QvFwPlugin PUBLIC ${CMAKE_CURRENT_LIST_DIR}
                           ${CMAKE_CURRENT_LIST_DIR}/include)
target_link_libraries(QvFwPlugin PUBLIC QvRuleEngine QvFwConfig kqueue QvUtil QvLog
                      Threads::Threads)
qv_strict(QvFwPlugin)

# The contract alone, for hosts: the daemon, the command-line tool and the tests.
add_library(QvPluginApi INTERFACE)
target_include_directories(QvPluginApi INTERFACE ${CMAKE_CURRENT_LIST_DIR}/include)

add_library(QvFw SHARED ${CMAKE_CURRENT_LIST_DIR}/main.cpp)
target_link_libraries(QvFw PRIVATE QvFwPlugin)
set(qvfw_exports ${CMAKE_CURRENT_LIST_DIR}/QvFw.map)
if(APPLE)
  target_link_options(QvFw PRIVATE -Wl,-exported_symbol,_QvPlugin* -Wl,-exported_symbol,_handlerArr)
else()
  target_link_options(QvFw PRIVATE -Wl,--version-script=${qvfw_exports} -Wl,--no-undefined)
endif()
set_target_properties(QvFw PROPERTIES LINK_DEPENDS ${qvfw_exports})
qv_strict(QvFw)
