# SPDX-License-Identifier: MIT
# What every target of the tree shares. Warnings and sanitizers stay private to the build; a user of the
# installed package sees include folders and the C++ standard only.

# kxio_settings(TARGET): language level, warnings, sanitizers, hidden symbols.
function(kxio_settings target)
  target_compile_features(${target} PUBLIC cxx_std_20)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF POSITION_INDEPENDENT_CODE ON
                        CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /utf-8)
  else()
    # -ffp-contract=off: results must not depend on which compiler fuses a multiply with an add.
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -ffp-contract=off)
    if(CMAKE_SIZEOF_VOID_P EQUAL 4)
      target_compile_definitions(${target} PRIVATE _FILE_OFFSET_BITS=64)  # files above 2 GiB
      if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86)$")
        target_compile_options(${target} PRIVATE -msse2 -mfpmath=sse)  # the old unit would round twice
      endif()
    endif()
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
      # g++ 12 sees overlapping copies in any inlined "literal" + std::string (its bug 105651).
      target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
  endif()
  if(KXIO_BUILD_FUZZ)
    target_compile_options(${target} PRIVATE -fsanitize=fuzzer-no-link)  # counters that guide the fuzzer
  endif()
  if(KXIO_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KXIO_SANITIZE} -fno-omit-frame-pointer
                           -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE -fsanitize=${KXIO_SANITIZE})
  endif()
endfunction()

# kxio_library(NAME ALIAS MACRO SOURCES... ): one library of the family, built twice from the same objects:
# NAME, what users link (shared and versioned unless BUILD_SHARED_LIBS is off), and NAME_internal, a static
# twin whose hidden symbols the tests can reach. Include folders and dependencies go to NAME_objects and
# reach both.
function(kxio_library name)
  cmake_parse_arguments(arg "" "ALIAS;MACRO;EXPORT_NAME" "SOURCES;PUBLIC_LINK;PRIVATE_LINK;INCLUDE" ${ARGN})
  add_library(${name}_objects OBJECT ${arg_SOURCES})
  kxio_settings(${name}_objects)
  target_compile_definitions(${name}_objects PRIVATE ${arg_MACRO}_BUILDING)
  target_include_directories(${name}_objects PUBLIC ${arg_INCLUDE})
  target_link_libraries(${name}_objects PUBLIC ${arg_PUBLIC_LINK} PRIVATE ${arg_PRIVATE_LINK})

  add_library(${name} $<TARGET_OBJECTS:${name}_objects>)
  add_library(${arg_ALIAS} ALIAS ${name})
  kxio_settings(${name})
  foreach(folder IN LISTS arg_INCLUDE)
    target_include_directories(${name} PUBLIC $<BUILD_INTERFACE:${folder}>)
  endforeach()
  target_include_directories(${name} PUBLIC $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${arg_PUBLIC_LINK} PRIVATE ${arg_PRIVATE_LINK})
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR}
                        EXPORT_NAME ${arg_EXPORT_NAME})

  add_library(${name}_internal STATIC $<TARGET_OBJECTS:${name}_objects>)
  target_compile_features(${name}_internal PUBLIC cxx_std_20)
  target_include_directories(${name}_internal PUBLIC ${arg_INCLUDE})
  target_link_libraries(${name}_internal PUBLIC ${arg_PUBLIC_LINK} ${arg_PRIVATE_LINK})
endfunction()

# kxio_unity(TARGET COUNT): COUNT sources are compiled at once, because their headers take longer than they do.
# With -DKXIO_UNITY=OFF each is compiled alone, which is quicker for whoever changes one of them.
function(kxio_unity target count)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${KXIO_UNITY} UNITY_BUILD_BATCH_SIZE ${count})
endfunction()

# kxio_test(NAME SOURCES... LINK...): one GoogleTest program; each of its cases is a case of ctest.
function(kxio_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK;DEFINE" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  kxio_settings(${name})
  target_link_libraries(${name} PRIVATE ${arg_LINK} GTest::gtest_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)  # support/...
  target_compile_definitions(${name} PRIVATE KXIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}" ${arg_DEFINE})
  kxio_unity(${name} 4)
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600)
endfunction()

# kxio_fuzz_target(fuzz_NAME SOURCES... LINK...): the sources define LLVMFuzzerTestOneInput. Built twice: the
# fuzzer fuzz_NAME (preset fuzz, clang only), and with every preset a case fuzz_NAME.replay of ctest, which runs
# the same function over the files of fuzz/corpus/NAME.
function(kxio_fuzz_target name)
  cmake_parse_arguments(arg "" "" "SOURCES;LINK" ${ARGN})
  string(REGEX REPLACE "^fuzz_" "" corpus ${name})
  if(KXIO_BUILD_FUZZ)
    add_executable(${name} ${arg_SOURCES})
    kxio_settings(${name})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests)  # support/...
    target_compile_definitions(${name} PRIVATE KXIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    target_link_libraries(${name} PRIVATE ${arg_LINK})
  endif()
  if(KXIO_BUILD_TESTS)
    add_executable(${name}_replay ${arg_SOURCES} ${PROJECT_SOURCE_DIR}/fuzz/ReplayMain.cpp)
    kxio_settings(${name}_replay)
    target_include_directories(${name}_replay PRIVATE ${PROJECT_SOURCE_DIR}/tests)
    target_compile_definitions(${name}_replay PRIVATE KXIO_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
    target_link_libraries(${name}_replay PRIVATE ${arg_LINK})
    add_test(NAME ${name}.replay COMMAND ${name}_replay ${PROJECT_SOURCE_DIR}/fuzz/corpus/${corpus})
    set_tests_properties(${name}.replay PROPERTIES TIMEOUT 600)
  endif()
endfunction()
