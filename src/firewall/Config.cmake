# The firewall configuration (FwConfig) with the store's message conversions, as a static
# library that the plug-in and the tests link.
add_library(QvFwConfig STATIC
  ${PROJECT_SOURCE_DIR}/src/gen_lite/VelaFwMsgConvert.cpp
  ${PROJECT_SOURCE_DIR}/src/gen_lite/VelaFwInternalMsgConvert.cpp
  ${CMAKE_CURRENT_LIST_DIR}/Config.cpp
  ${CMAKE_CURRENT_LIST_DIR}/RuleListPlist.cpp)
target_include_directories(QvFwConfig PUBLIC
  ${CMAKE_CURRENT_LIST_DIR}
  ${PROJECT_SOURCE_DIR}/src/gen_lite)
target_link_libraries(QvFwConfig PUBLIC VelaProto QvCommon QvUtil CoreFoundation)
qv_strict(QvFwConfig)
