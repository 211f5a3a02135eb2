# Shared build settings for the project's own targets, and the configure summary.

if(QV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(QV_THREAD_SAFETY AND NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  message(FATAL_ERROR "QV_THREAD_SAFETY needs clang (-DCMAKE_CXX_COMPILER=clang++-14)")
endif()

# libFuzzer steers by coverage: every library a fuzz target links must carry the
# coverage hooks, not only the target's own source.
if(QV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Our own code builds warning-free; generated and third-party code is left alone. The
# lock annotations (QvThreadSafety.h) are checked where the compiler can.
function(qv_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  # Brace elision in aggregate tables is plain C++; only clang's -Wall objects to it.
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(${target} PRIVATE -Wno-missing-braces)
  endif()
  # The beta group is where clang checks the order locks are taken in (ACQUIRED_BEFORE).
  if(QV_THREAD_SAFETY)
    target_compile_options(${target} PRIVATE -Wthread-safety -Wthread-safety-beta)
  endif()
endfunction()

# The configure summary: one line per part, built or skipped with the reason.
function(qv_summary_built part what)
  set_property(GLOBAL APPEND PROPERTY QV_SUMMARY "  ${part}: ${what}")
endfunction()
function(qv_summary_skip part why)
  set_property(GLOBAL APPEND PROPERTY QV_SUMMARY "  ${part}: SKIPPED (${why})")
endfunction()
function(qv_print_summary)
  get_property(lines GLOBAL PROPERTY QV_SUMMARY)
  set(checks "")
  if(QV_SANITIZE)
    string(APPEND checks " +ASan+UBSan")
  endif()
  if(QV_THREAD_SAFETY)
    string(APPEND checks " +thread-safety")
  endif()
  message(STATUS "Quorvane: ${CMAKE_BUILD_TYPE}, ${CMAKE_CXX_COMPILER_ID} "
                 "${CMAKE_CXX_COMPILER_VERSION}${checks}")
  foreach(line IN LISTS lines)
    message(STATUS "${line}")
  endforeach()
endfunction()
