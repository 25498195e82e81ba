# Warnings and sanitizers, the same for every target.
add_library(corvane_flags INTERFACE)
target_compile_options(corvane_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wno-format-nonliteral -Wconversion -Wno-sign-conversion
  -Wundef -Wcast-qual -fno-strict-aliasing
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
  target_compile_options(corvane_flags INTERFACE -Wthread-safety -Wno-gnu-zero-variadic-macro-arguments)
endif()
if(CORVANE_WERROR)
  target_compile_options(corvane_flags INTERFACE -Werror)
endif()
if(CORVANE_SANITIZE)
  # Program-wide, so that every object of a process agrees.
  add_compile_options(-fsanitize=${CORVANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CORVANE_SANITIZE})
endif()
if(CORVANE_FUZZ)
  # Coverage feedback in the library's own objects; the fuzzer's main comes with the targets.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()
