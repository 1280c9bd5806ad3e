# Strict warnings on our own code only; third-party headers come in as SYSTEM.
function(ms_strict target)
  if(MS_FUZZ)
    target_compile_options(${target} PRIVATE -Wall -Wextra)  # clang: report, never block a fuzz run
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
  endif()
endfunction()

# A library made of every .c/.cpp file under DIR (recursive). Helpers add files, not CMake lines.
function(ms_glob_sources out)
  set(files)
  foreach(dir IN LISTS ARGN)
    file(GLOB_RECURSE found CONFIGURE_DEPENDS ${dir}/*.cpp ${dir}/*.c)
    list(APPEND files ${found})
  endforeach()
  set(${out} ${files} PARENT_SCOPE)
endfunction()

# Unit-test executable: ms_test(NAME SOURCES... LIBS ... LABELS ...)
function(ms_test name)
  cmake_parse_arguments(T "" "TIMEOUT" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${T_SOURCES})
  ms_strict(${name})
  target_link_libraries(${name} PRIVATE ${T_LIBS} GTest::gtest GTest::gtest_main Threads::Threads)
  if(NOT T_LABELS)
    set(T_LABELS unit)
  endif()
  if(NOT T_TIMEOUT)
    set(T_TIMEOUT 120)
  endif()
  include(GoogleTest)
  gtest_discover_tests(${name} PROPERTIES LABELS "${T_LABELS}" TIMEOUT ${T_TIMEOUT}
                       DISCOVERY_TIMEOUT 60)
endfunction()

# A test binary that proves a path allocates nothing: ms_noheap_test(NAME SOURCES... LIBS...). Its
# sources include tests/common/heap_count.h once, which replaces operator new and brings main(), so
# gtest_main stays out of its link.
function(ms_noheap_test name)
  cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
  ms_test(${name} SOURCES ${T_SOURCES} LIBS ${T_LIBS})
  get_target_property(libs ${name} LINK_LIBRARIES)
  list(REMOVE_ITEM libs GTest::gtest_main)
  set_target_properties(${name} PROPERTIES LINK_LIBRARIES "${libs}")
  # The replacement new and delete are a malloc/free pair; with sanitizers GCC no longer sees that
  # once gtest's `new TestClass` is inlined next to them.
  target_compile_options(${name} PRIVATE -Wno-mismatched-new-delete)
endfunction()

# libFuzzer target: ms_fuzzer(NAME SOURCE LIBS...). The test script runs every fuzz_* binary briefly,
# seeded from fuzz/corpus/NAME when that folder exists.
function(ms_fuzzer name source)
  add_executable(${name} ${source})
  target_link_libraries(${name} PRIVATE ${ARGN})
  target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzzers)
endfunction()

# Benchmark program: ms_bench(NAME SOURCES... LIBS ...)
function(ms_bench name)
  cmake_parse_arguments(B "" "" "SOURCES;LIBS" ${ARGN})
  add_executable(${name} ${B_SOURCES})
  target_link_libraries(${name} PRIVATE ${B_LIBS} benchmark::benchmark benchmark::benchmark_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bench)
endfunction()
