# Compiler settings, output folders and run paths of our targets. They are properties of each
# target, not of the directory or the cache: a project that includes this one keeps its own.

find_program(OX_CCACHE ccache)

# Programs find our libraries in ../lib in the build folder and in the library folder of an
# installed tree. Both paths are the same in both trees: CMake would pad a shorter one with empty
# entries, which mean the working directory, in order to edit it in place when installing.
set(ox_program_run_path "$ORIGIN/../lib")
if(OX_INSTALL)
  include(GNUInstallDirs)
  file(RELATIVE_PATH ox_installed_libraries ${CMAKE_INSTALL_FULL_BINDIR}
       ${CMAKE_INSTALL_FULL_LIBDIR})
  list(PREPEND ox_program_run_path "$ORIGIN/${ox_installed_libraries}")
  list(REMOVE_DUPLICATES ox_program_run_path)
endif()

# Errors carry the place where they arose, relative to the source tree. Debug information keeps the
# true paths.
set(ox_place_options -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)

# Counters of the lines that run; threads share them. With counters in the way, GCC inlines only one
# half of a pair of operators in msgpack's headers, and reports a mismatch that is none.
set(ox_coverage_options --coverage -fprofile-update=atomic -Wno-mismatched-new-delete)

# ox_target(name [UNCOUNTED]): the settings of each library and program of this project. Lines of an
# uncounted one are not counted with OX_COVERAGE, which costs time; it can link libraries that count.
function(ox_target name)
  cmake_parse_arguments(ARG "UNCOUNTED" "" "" ${ARGN})
  target_compile_features(${name} PUBLIC cxx_std_20)
  # Symbols are hidden unless a header exports them with OX_API.
  set_target_properties(${name} PROPERTIES
    OX_TARGET ON
    CXX_STANDARD 20
    CXX_EXTENSIONS OFF
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin
    LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib
    BUILD_WITH_INSTALL_RPATH ON
    INSTALL_RPATH_USE_LINK_PATH ON)
  get_target_property(type ${name} TYPE)
  if(type STREQUAL "EXECUTABLE")
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "${ox_program_run_path}")
  else()
    set_target_properties(${name} PROPERTIES INSTALL_RPATH "$ORIGIN")
  endif()
  if(OX_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set_target_properties(${name} PROPERTIES CXX_COMPILER_LAUNCHER ${OX_CCACHE})
  endif()

  target_compile_options(${name} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                         -Wno-missing-field-initializers)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 sees overlaps in additions of strings that are none.
    target_compile_options(${name} PRIVATE -Wno-restrict)
  elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # What framework/oxthreadsafety.h annotates.
    target_compile_options(${name} PRIVATE -Wthread-safety)
  endif()
  target_compile_options(${name} PRIVATE ${ox_place_options})
  if(OX_WERROR)
    target_compile_options(${name} PRIVATE -Werror)
  endif()
  if(OX_SANITIZE)
    # -Wmaybe-uninitialized reports library code that a sanitizer has instrumented, and -Wtsan that
    # fences are not supported, which Boost.Asio has and does not rely on.
    target_compile_options(${name} PRIVATE
      -fsanitize=${OX_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all
      -Wno-maybe-uninitialized -Wno-tsan)
    target_link_options(${name} PRIVATE -fsanitize=${OX_SANITIZE})
  endif()
  if(OX_COVERAGE)
    if(NOT ARG_UNCOUNTED)
      target_compile_options(${name} PRIVATE ${ox_coverage_options})
    endif()
    target_link_options(${name} PRIVATE --coverage)
  endif()
  # Boost 1.74 warns about its own placeholders unless told which ones are meant.
  target_compile_definitions(${name} PRIVATE BOOST_BIND_GLOBAL_PLACEHOLDERS)
endfunction()

# ox_test(name LIBS lib... SOURCES file...): a GoogleTest program whose cases ctest lists one by one.
# Of its lines only those are counted that it has from what it tests.
function(ox_test name)
  cmake_parse_arguments(ARG "" "" "LIBS;SOURCES" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  ox_target(${name} UNCOUNTED)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gmock GTest::gtest_main)
  if(OX_COVERAGE)
    set(tests ${PROJECT_SOURCE_DIR}/tests)
    foreach(source IN LISTS ARG_SOURCES)
      cmake_path(ABSOLUTE_PATH source NORMALIZE)
      cmake_path(IS_PREFIX tests ${source} is_test)
      if(NOT is_test)
        set_property(SOURCE ${source} APPEND PROPERTY COMPILE_OPTIONS ${ox_coverage_options})
      endif()
    endforeach()
  endif()
  gtest_discover_tests(${name} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 300)
endfunction()

# ox_check_targets(directory): a target without the settings would be built without warnings and
# sanitizers, and nobody would notice.
function(ox_check_targets directory)
  get_directory_property(targets DIRECTORY ${directory} BUILDSYSTEM_TARGETS)
  foreach(target IN LISTS targets)
    get_target_property(type ${target} TYPE)
    get_target_property(has_settings ${target} OX_TARGET)
    if(type MATCHES "EXECUTABLE|(STATIC|SHARED|MODULE|OBJECT)_LIBRARY" AND NOT has_settings)
      message(FATAL_ERROR "${target} has no ox_target(${target})")
    endif()
  endforeach()
  get_directory_property(subdirectories DIRECTORY ${directory} SUBDIRECTORIES)
  foreach(subdirectory IN LISTS subdirectories)
    ox_check_targets(${subdirectory})
  endforeach()
endfunction()
