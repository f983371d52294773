# Warnings for our own targets; third-party headers come in as SYSTEM through imported targets.
function(fq_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                           -Wno-sign-conversion -Wnon-virtual-dtor)
  # GCC 12 reports overlapping copies inside std::string concatenation at -O3
  # that cannot happen (its bugs 105329 and 105651); later releases do not.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
  if(FQ_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# A subsystem library: fq_<name> with alias fq::<name>, public headers under include/.
function(fq_add_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES" ${ARGN})
  add_library(fq_${name} STATIC ${ARG_SOURCES})
  add_library(fq::${name} ALIAS fq_${name})
  target_include_directories(fq_${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include
                                        PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/src)
  fq_warnings(fq_${name})
endfunction()

# A subsystem's test executable, registered with ctest under the given labels.
function(fq_add_tests name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBS} fq_test_support GTest::gmock GTest::gtest_main)
  fq_warnings(${name})
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES LABELS "${ARG_LABELS}")
endfunction()

# Embeds files as byte arrays: for each file, a function `std::string_view <symbol>()`
# in namespace fq::resources, declared in a generated header <fq/resources/<target>.h>.
function(fq_embed_resources target)
  cmake_parse_arguments(ARG "" "" "FILES" ${ARGN})
  set(gen_dir ${CMAKE_CURRENT_BINARY_DIR}/generated)
  set(header ${gen_dir}/fq/resources/${target}.h)
  set(source ${gen_dir}/${target}_resources.cpp)
  set(decls "")
  set(defs "")
  foreach(file IN LISTS ARG_FILES)
    get_filename_component(abs ${file} ABSOLUTE)
    get_filename_component(base ${file} NAME)
    string(MAKE_C_IDENTIFIER ${base} symbol)
    file(READ ${abs} hex HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
    string(APPEND decls "std::string_view ${symbol}();\n")
    string(APPEND defs "static const char ${symbol}_data[] = {${bytes} 0};\n"
                       "std::string_view ${symbol}() { return {${symbol}_data, sizeof ${symbol}_data - 1}; }\n")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${abs})
  endforeach()
  file(CONFIGURE OUTPUT ${header} CONTENT "#pragma once\n#include <string_view>\nnamespace fq::resources {\n${decls}}\n")
  file(CONFIGURE OUTPUT ${source} CONTENT "#include <fq/resources/${target}.h>\nnamespace fq::resources {\n${defs}}\n")
  target_sources(${target} PRIVATE ${source})
  target_include_directories(${target} PRIVATE ${gen_dir})
endfunction()

# libFuzzer targets: fuzz/<name>.cpp for each name, linked to `library`, which is then built
# with coverage too. They need clang, so only a clang configuration with -DFQ_FUZZ=ON sees them.
option(FQ_FUZZ "Build the libFuzzer targets (clang only)" OFF)
function(fq_add_fuzzers library)
  if(NOT (FQ_FUZZ AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang"))
    return()
  endif()
  target_compile_options(${library} PRIVATE -fsanitize=fuzzer-no-link,address,undefined)
  foreach(fuzzer IN LISTS ARGN)
    add_executable(${fuzzer} fuzz/${fuzzer}.cpp)
    target_link_libraries(${fuzzer} PRIVATE ${library})
    target_compile_options(${fuzzer} PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_options(${fuzzer} PRIVATE -fsanitize=fuzzer,address,undefined)
    fq_warnings(${fuzzer})
  endforeach()
endfunction()
