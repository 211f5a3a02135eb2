qv_add_test(RuleGeneratorTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/RuleGeneratorTest.cpp
  LIBS QvRuleEngine)
target_include_directories(RuleGeneratorTest PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)

qv_add_test(RuleMgrTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/RuleMgrTest.cpp
  LIBS QvRuleEngine)
target_include_directories(RuleMgrTest PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
if(TARGET ipfw-sim)
  add_dependencies(RuleMgrTest ipfw-sim)
endif()
