# The library of the seal, built if ISA-L and libsodium are installed; else everything is
# built without it. Neither of them comes with a package file for CMake.
option(TARNWICK_SEAL "Build the seal where its libraries are installed" ON)
if(NOT TARNWICK_SEAL)
  return()
endif()
find_path(ISAL_INCLUDE isa-l/erasure_code.h)
find_library(ISAL_LIBRARY isal)
find_path(SODIUM_INCLUDE sodium.h)
find_library(SODIUM_LIBRARY sodium)
mark_as_advanced(ISAL_INCLUDE ISAL_LIBRARY SODIUM_INCLUDE SODIUM_LIBRARY)
if(NOT (ISAL_INCLUDE AND ISAL_LIBRARY AND SODIUM_INCLUDE AND SODIUM_LIBRARY))
  message(STATUS "The seal and tarnwick-key are not built, they need ISA-L and libsodium "
                 "(Debian: libisal-dev libsodium-dev)")
  return()
endif()

add_library(seal STATIC
  seal/code.cpp seal/digest.cpp seal/keys.cpp seal/layout.cpp seal/percent.cpp seal/record.cpp)
target_include_directories(seal SYSTEM PUBLIC ${ISAL_INCLUDE} ${SODIUM_INCLUDE})
target_link_libraries(seal PUBLIC ground wire ${ISAL_LIBRARY} ${SODIUM_LIBRARY})
add_executable(tarnwick-key seal/tarnwick_key.cpp)
target_link_libraries(tarnwick-key PRIVATE seal)
install(TARGETS tarnwick-key RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES docs/man/tarnwick-key.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
