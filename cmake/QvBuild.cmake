# Shared build settings for the project's own targets.

if(QV_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# libFuzzer steers by coverage: every library a fuzz target links must carry the
# coverage hooks, not only the target's own source.
if(QV_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

# Our own code builds warning-free; generated and third-party code is left alone.
function(qv_strict target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
endfunction()

# Adds every listed subdirectory that has a CMakeLists.txt, so that components can be
# added one at a time without touching their parents.
function(qv_add_subdirectories)
  foreach(dir IN LISTS ARGN)
    if(EXISTS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/CMakeLists.txt)
      add_subdirectory(${dir})
    endif()
  endforeach()
endfunction()
