qv_add_test(SchemaTest
  SOURCES ${CMAKE_CURRENT_SOURCE_DIR}/SchemaTest.cpp
  LIBS VelaProto)
