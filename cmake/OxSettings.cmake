# Compiler settings, output folders and the two small helpers that all rooms share.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# Symbols are hidden unless a header exports them with OX_API.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
# A build folder can be moved: programs look for libraries beside themselves.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_INSTALL_RPATH "$ORIGIN/../lib;$ORIGIN")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "" FORCE)
endif()

find_program(OX_CCACHE ccache)
if(OX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${OX_CCACHE})
endif()

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                    -Wno-missing-field-initializers)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees overlaps in additions of strings that are none.
  add_compile_options(-Wno-restrict)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # What framework/oxthreadsafety.h annotates.
  add_compile_options(-Wthread-safety)
endif()
# Errors carry the place where they arose, relative to the source tree. The second form is what
# ccache makes of a path when it has a base directory. Debug information keeps the true paths.
cmake_path(RELATIVE_PATH PROJECT_SOURCE_DIR BASE_DIRECTORY ${CMAKE_BINARY_DIR}
           OUTPUT_VARIABLE source_from_build)
add_compile_options(-fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=
                    -fmacro-prefix-map=${source_from_build}/=)
if(OX_WERROR)
  add_compile_options(-Werror)
endif()
if(OX_SANITIZE)
  # -Wmaybe-uninitialized reports library code that a sanitizer has instrumented, and -Wtsan that
  # fences are not supported, which Boost.Asio has and does not rely on.
  add_compile_options(-fsanitize=${OX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
                      -Wno-maybe-uninitialized -Wno-tsan)
  add_link_options(-fsanitize=${OX_SANITIZE})
endif()
# Boost 1.74 warns about its own placeholders unless told which ones are meant.
add_compile_definitions(BOOST_BIND_GLOBAL_PLACEHOLDERS)

find_package(Threads REQUIRED)
find_package(PkgConfig REQUIRED)

# ox_test(name LIBS lib... SOURCES file...): a GoogleTest program whose cases ctest lists one by one.
function(ox_test name)
  cmake_parse_arguments(ARG "" "" "LIBS;SOURCES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()
