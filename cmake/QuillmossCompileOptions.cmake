# Compile options shared by every target of the project.

add_compile_options(-Wall -Wextra -Werror -Wpedantic)

# Keep file and function in release builds too: some log categories print them.
add_compile_definitions(QT_MESSAGELOGCONTEXT QT_NO_KEYWORDS QT_NO_CAST_FROM_ASCII
                        QT_NO_NARROWING_CONVERSIONS_IN_CONNECT)

if(QUILLMOSS_SANITIZE)
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(QUILLMOSS_FUZZ)
  # Libraries get the coverage instrumentation; each fuzz target links libFuzzer's main.
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

find_program(CCACHE_PROGRAM ccache)
if(CCACHE_PROGRAM)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
endif()

# quillmoss_library(NAME SOURCES...): one library per subsystem directory; its
# directory is the include root, so headers are included as "app/Foo.h".
function(quillmoss_library name)
  add_library(${name} STATIC ${ARGN})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
endfunction()
