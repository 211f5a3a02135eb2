qv_add_test(RuleGeneratorTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/RuleGeneratorTest.cpp
  LIBS QvRuleEngine)

qv_add_test(RuleMgrTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/RuleMgrTest.cpp
  LIBS QvRuleEngine)
if(TARGET ipfw-sim)
  add_dependencies(RuleMgrTest ipfw-sim)
endif()
