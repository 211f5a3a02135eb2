# The firewall configuration against real files in a temporary $QV_CONF_DIR.
if(TARGET QvFwConfig)
  qv_add_test(ConfigTest
    SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/ConfigTest.cpp
    LIBS QvFwConfig)
  target_include_directories(ConfigTest PRIVATE ${CMAKE_SOURCE_DIR}/tests/common)
endif()
