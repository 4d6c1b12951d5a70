# Compiler settings shared by every target, and the ways to declare one.

add_library(tolmar-settings INTERFACE)
target_compile_options(tolmar-settings INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow)
if(TOLMAR_WERROR)
  target_compile_options(tolmar-settings INTERFACE -Werror)
endif()
if(TOLMAR_SANITIZE)
  target_compile_options(tolmar-settings INTERFACE -fsanitize=${TOLMAR_SANITIZE} -fno-omit-frame-pointer)
  target_link_options(tolmar-settings INTERFACE -fsanitize=${TOLMAR_SANITIZE})
endif()
target_include_directories(tolmar-settings INTERFACE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/platform)

# tolmar_floor(NAME [SOURCES ...] [HEADERS ...] [USES floor ...])
# An object library: its objects go, in the listed order, into the shared library that names the floor.
# Every header is compiled once alone by the target all_verify_interface_header_sets.
set(platform_dir ${PROJECT_SOURCE_DIR}/platform)
function(tolmar_floor name)
  cmake_parse_arguments(FLOOR "" "" "SOURCES;HEADERS;USES" ${ARGN})
  add_library(${name} OBJECT ${FLOOR_SOURCES})
  cmake_path(IS_PREFIX platform_dir ${CMAKE_CURRENT_SOURCE_DIR} in_platform)
  set(base ${PROJECT_SOURCE_DIR})
  if(in_platform)
    set(base ${platform_dir})
  endif()
  target_sources(${name} PUBLIC FILE_SET HEADERS BASE_DIRS ${base} FILES ${FLOOR_HEADERS})
  set_target_properties(${name} PROPERTIES VERIFY_INTERFACE_HEADER_SETS ON LINKER_LANGUAGE CXX)
  target_link_libraries(${name} PUBLIC tolmar-settings ${FLOOR_USES})
endfunction()

# What every object of the plugin library is compiled with besides. A unique symbol (one std::make_shared is
# enough) would keep the library loaded after dlclose; link-time optimisation and unity builds would reorder its
# load-time registrations.
add_library(tolmar-plugin-settings INTERFACE)
target_compile_options(tolmar-plugin-settings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
function(tolmar_plugin_objects name)
  target_link_libraries(${name} PRIVATE tolmar-plugin-settings)
  set_target_properties(${name} PROPERTIES UNITY_BUILD OFF INTERPROCEDURAL_OPTIMIZATION OFF)
endfunction()

# A missing definition fails the link of the library, not its loading. The sanitizers' own symbols are missing by
# design.
function(tolmar_complete name)
  if(NOT TOLMAR_SANITIZE)
    target_link_options(${name} PRIVATE LINKER:-z,defs)
  endif()
endfunction()

# tolmar_test(NAME SOURCES ... [USES target ...] [LABELS label ...]): a GoogleTest program, its cases found by
# CTest. Those labelled tsan hold threads that share memory and are built by the target tsan_tests.
function(tolmar_test name)
  cmake_parse_arguments(TEST "" "" "SOURCES;USES;LABELS" ${ARGN})
  add_executable(${name} ${TEST_SOURCES})
  # The tests' own code gains nothing from more, and compiles in 60 % of the time.
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O1>)
  target_link_libraries(${name} PRIVATE tolmar ${TEST_USES} GTest::gtest GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120 LABELS "${TEST_LABELS}")
  if(tsan IN_LIST TEST_LABELS)
    if(NOT TARGET tsan_tests)
      add_custom_target(tsan_tests)
    endif()
    add_dependencies(tsan_tests ${name})
  endif()
endfunction()

# tolmar_benchmark(NAME SOURCES ... [USES target ...]): a program of the target benchmarks, which tools/bench
# builds.
function(tolmar_benchmark name)
  cmake_parse_arguments(BENCH "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${BENCH_SOURCES})
  target_link_libraries(${name} PRIVATE tolmar ${BENCH_USES} benchmark::benchmark)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/benchmarks)
  if(NOT TARGET benchmarks)
    add_custom_target(benchmarks)
  endif()
  add_dependencies(benchmarks ${name})
endfunction()
