qv_add_test(RuleGeneratorTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/RuleGeneratorTest.cpp
  LIBS QvRuleEngine)
target_include_directories(RuleGeneratorTest PRIVATE ${CMAKE_SOURCE_DIR}/tests/support)
