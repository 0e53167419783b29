# SPDX-License-Identifier: MIT
# One step of the package tests: install the built tree, or use it as a user would.

function(run)
  string(REPLACE ";" " " shown "${ARGN}")
  message("$ ${shown}")
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
  message("${output}")
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "failed (${result})")
  endif()
  set(output "${output}" PARENT_SCOPE)
endfunction()

function(expect text)
  string(FIND "${output}" "${text}" place)
  if(place EQUAL -1)
    message(FATAL_ERROR "expected in the output: ${text}")
  endif()
endfunction()

set(configure ${CMAKE_COMMAND} -G ${GENERATOR} -DCMAKE_CXX_COMPILER=${CXX} -DCMAKE_BUILD_TYPE=${BUILD_TYPE})
if(FLAGS)
  list(APPEND configure -DCMAKE_CXX_FLAGS=${FLAGS})
endif()

if(STEP STREQUAL "install")
  file(REMOVE_RECURSE ${INSTALLED})
  # First elsewhere, then moved: nothing of it may depend on where it was installed.
  run(${CMAKE_COMMAND} --install ${TREE} --prefix ${INSTALLED}.first --component libraries)
  file(RENAME ${INSTALLED}.first ${INSTALLED})

elseif(STEP STREQUAL "cmake")
  file(REMOVE_RECURSE ${WORK}/with-cmake)
  run(${configure} -S ${CONSUMER} -B ${WORK}/with-cmake -DCMAKE_PREFIX_PATH=${INSTALLED})
  run(${CMAKE_COMMAND} --build ${WORK}/with-cmake)
  run(${WORK}/with-cmake/consumer)
  expect("kxio ok")
  run(${WORK}/with-cmake/base_only)
  expect("base ok")

elseif(STEP STREQUAL "pkgconfig")
  set(ENV{PKG_CONFIG_PATH} ${INSTALLED}/${LIBDIR}/pkgconfig)
  run(${PKG_CONFIG} --modversion kxio)
  expect("${VERSION}")
  run(${PKG_CONFIG} --cflags --libs kxio)
  string(STRIP "${output}" flags)
  separate_arguments(flags UNIX_COMMAND "${flags}")
  file(MAKE_DIRECTORY ${WORK}/with-pkg-config)
  run(${CXX} -std=c++20 ${FLAGS} ${CONSUMER}/main.cpp -o ${WORK}/with-pkg-config/consumer ${flags}
      -Wl,-rpath,${INSTALLED}/${LIBDIR})
  run(${WORK}/with-pkg-config/consumer)
  expect("kxio ok")

elseif(STEP STREQUAL "command")
  # Beside a copy of the libraries, in a folder of its own, so that nothing of the build tree is found.
  file(REMOVE_RECURSE ${WORK}/command)
  foreach(component IN ITEMS libraries command)
    run(${CMAKE_COMMAND} --install ${TREE} --prefix ${WORK}/command.first --component ${component})
  endforeach()
  file(RENAME ${WORK}/command.first ${WORK}/command)
  run(${WORK}/command/bin/qsn --version)
  expect("qsn ${VERSION}")
  run(${WORK}/command/bin/qsn import ${SOURCE}/tests/data/street_a_1024x128.ptx.gz ${WORK}/command/street.qsn)
  run(${WORK}/command/bin/qsn info ${WORK}/command/street.qsn)
  expect("107,647")  # returns of that scan

elseif(STEP STREQUAL "version")
  file(REMOVE_RECURSE ${WORK}/other-version)
  file(WRITE ${WORK}/other-version/CMakeLists.txt
       "cmake_minimum_required(VERSION 3.21)\nproject(other LANGUAGES CXX)\n"
       "find_package(kxio 0.0 QUIET)\nmessage(\"found: \${kxio_FOUND}, considered: \${kxio_CONSIDERED_VERSIONS}\")\n")
  run(${configure} -S ${WORK}/other-version -B ${WORK}/other-version/build -DCMAKE_PREFIX_PATH=${INSTALLED})
  expect("found: 0, considered: ${VERSION}")

elseif(STEP STREQUAL "subfolder")
  file(REMOVE_RECURSE ${WORK}/subfolder)
  file(WRITE ${WORK}/subfolder/CMakeLists.txt
       "cmake_minimum_required(VERSION 3.21)\nproject(parent LANGUAGES CXX)\n"
       "add_subdirectory(${SOURCE} kxio)\nadd_executable(consumer ${CONSUMER}/main.cpp)\n"
       "target_link_libraries(consumer PRIVATE kx::base kx::codecs kx::io)\n"
       "foreach(unwanted IN ITEMS qsn kxbase_tests)\n  if(TARGET \${unwanted})\n"
       "    message(FATAL_ERROR \"a user's build got our target \${unwanted}\")\n  endif()\nendforeach()\n")
  # Configuring is enough: it resolves the names, and the sources are compiled by the tree itself.
  run(${configure} -S ${WORK}/subfolder -B ${WORK}/subfolder/build)

else()
  message(FATAL_ERROR "unknown step ${STEP}")
endif()
