# How everything here is compiled: warnings, protections, sanitizers.
include_directories(${CMAKE_SOURCE_DIR})
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

add_compile_options(-Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TARNWICK_WERROR)
  add_compile_options(-Werror)
endif()

if(TARNWICK_SANITIZE)
  add_compile_options(-fsanitize=${TARNWICK_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TARNWICK_SANITIZE})
elseif(TARNWICK_HARDEN)
  add_compile_options(-D_GLIBCXX_ASSERTIONS -fstack-protector-strong)
  # - stack-clash: a large frame can't step over the guard page
  # - cf-protection: jumps land on their targets only (x86)
  # - strict-overflow, delete-null-pointer-checks: a check written too late isn't removed
  include(CheckCXXCompilerFlag)
  foreach(flag stack-clash-protection cf-protection=full no-strict-overflow
               no-delete-null-pointer-checks)
    string(MAKE_C_IDENTIFIER "TARNWICK_HAS_${flag}" has)
    check_cxx_compiler_flag("-Werror -f${flag}" ${has})
    if(${has})
      add_compile_options(-f${flag})
    endif()
  endforeach()
  # _FORTIFY_SOURCE works only in an optimised build. Variables that nobody set are 0
  # there (Clang from 16 on); in a debug build valgrind shall find them.
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  check_cxx_compiler_flag(-ftrivial-auto-var-init=zero TARNWICK_HAS_auto_var_init)
  if(TARNWICK_HAS_auto_var_init)
    add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-ftrivial-auto-var-init=zero>")
  endif()
  add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>"
                   -Wl,-z,relro,-z,now,-z,noexecstack,-z,separate-code)
endif()
