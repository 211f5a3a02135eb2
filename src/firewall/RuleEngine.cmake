# The rule engine: keyword maps, rule text generator and rule set manager.
add_library(QvRuleEngine STATIC
  ${CMAKE_CURRENT_SOURCE_DIR}/StringMap.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/RuleGenerator.cpp
  ${CMAKE_CURRENT_SOURCE_DIR}/RuleMgr.cpp)
target_include_directories(QvRuleEngine PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(QvRuleEngine PUBLIC VelaProto QvCommon QvUtil)
qv_strict(QvRuleEngine)
