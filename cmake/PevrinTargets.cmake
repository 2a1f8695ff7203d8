# How this tree builds its libraries, tests, benchmarks and fuzz targets. Sources are found by folder, so that a new
# file needs no line here.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_STANDARD 11)
set(CMAKE_C_STANDARD_REQUIRED ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_C_COMPILER_LAUNCHER ${CCACHE})
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

find_package(Threads REQUIRED)

add_library(pevrin_options INTERFACE)
target_compile_options(pevrin_options INTERFACE
  -Wall -Wextra $<IF:$<CXX_COMPILER_ID:GNU>,-Wshadow=local,-Wshadow> -Wvla -Werror
  # doubles follow IEEE to the bit on every machine
  -ffp-contract=off
  # no path of the building machine in the binaries
  -ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_compile_options(pevrin_options INTERFACE
  # an object's header is written before its type's constructor runs
  $<$<CXX_COMPILER_ID:GNU>:-fno-lifetime-dse>)
target_link_libraries(pevrin_options INTERFACE Threads::Threads)

if(PEVRIN_SANITIZE)
  add_compile_options(-fsanitize=${PEVRIN_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${PEVRIN_SANITIZE})
  if(PEVRIN_BUILD_FUZZERS)
    add_compile_options(-fsanitize=fuzzer-no-link)
  endif()
endif()

# pevrin_library(name FOLDERS dir... INCLUDE dir LINK lib... [EXPORTS script]): a shared library of all .cpp files in the
# folders. Its names are exported by cmake/exports.map, or by a version script of its own.
function(pevrin_library name)
  cmake_parse_arguments(ARG "" "INCLUDE;EXPORTS" "FOLDERS;LINK" ${ARGN})
  set(sources)
  foreach(folder IN LISTS ARG_FOLDERS)
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  add_library(${name} SHARED ${sources})
  target_include_directories(${name}
    PUBLIC $<BUILD_INTERFACE:${ARG_INCLUDE}> $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>
    PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE $<BUILD_INTERFACE:pevrin_options>)
  target_compile_options(${name} PRIVATE
    $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti> -fno-semantic-interposition -fno-plt)
  # under a sanitizer its runtime is in the program, so that a library has open names
  if(NOT PEVRIN_SANITIZE)
    set(exports ${PROJECT_SOURCE_DIR}/cmake/exports.map)
    if(ARG_EXPORTS)
      set(exports ${ARG_EXPORTS})
    endif()
    set(preempted ${PROJECT_SOURCE_DIR}/cmake/preempted.list)
    target_link_options(${name} PRIVATE
      -Wl,-z,defs,-z,relro,-z,now,-Bsymbolic-functions,--version-script=${exports},--dynamic-list=${preempted})
    set_target_properties(${name} PROPERTIES LINK_DEPENDS "${exports};${preempted}")
  endif()
  set_target_properties(${name} PROPERTIES
    VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR} EXPORT_NAME ${name})
  add_library(Pevrin::${name} ALIAS ${name})
endfunction()

# pevrin_test(name FOLDER dir LINK lib...): one GoogleTest program of all *_test.cpp files in the folder.
function(pevrin_test name)
  cmake_parse_arguments(ARG "" "FOLDER" "LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${ARG_FOLDER}/*_test.cpp)
  if(NOT sources)
    return()
  endif()
  find_package(GTest REQUIRED)
  add_executable(${name} ${sources})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} pevrin_options GTest::gtest_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
endfunction()

# pevrin_bench(name SOURCES file... LINK lib...): one Google Benchmark program of the named sources.
function(pevrin_bench name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK" ${ARGN})
  find_package(benchmark REQUIRED)
  add_executable(${name} ${ARG_SOURCES})
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} pevrin_options benchmark::benchmark_main)
  set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bench)
endfunction()
