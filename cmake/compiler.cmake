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
  add_compile_options(-D_GLIBCXX_ASSERTIONS -fstack-protector-strong -fstack-clash-protection)
  # _FORTIFY_SOURCE works only in an optimised build
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
  add_link_options("$<$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>:-pie>" -Wl,-z,relro,-z,now)
endif()
