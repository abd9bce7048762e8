# How everything here is compiled: warnings are errors, assertions are behaviour,
# arithmetic is pinned, and platform functions stay replaceable one at a time.
add_library(kiv_options INTERFACE)
target_compile_options(kiv_options INTERFACE
  -Wall -Wextra -Wshadow -Woverloaded-virtual -Wsuggest-override -Werror
  -UNDEBUG -ffp-contract=off)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(kiv_options INTERFACE -fsemantic-interposition)
endif()
# At -O3 some versions of g++ see overlapping copies within std::string's operator+.
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  target_compile_options(kiv_options INTERFACE $<$<CONFIG:Release>:-Wno-restrict>)
endif()
if(KIV_SANITIZE)
  add_compile_options(-fsanitize=${KIV_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${KIV_SANITIZE})
  if(KIV_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()
