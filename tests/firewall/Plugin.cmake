# The plug-in's text handling: log lines into events, the logger configuration check,
# and the redirection written to real files.
if(TARGET QvFwPlugin)
  qv_add_test(LogTextTest SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/LogTextTest.cpp LIBS QvFwPlugin)
endif()
