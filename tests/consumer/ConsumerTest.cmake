# Run by ctest as `cmake -P`: install the build into WORK_DIR/prefix (or, with -DPACKAGES=ON,
# make the Debian packages and unpack them into WORK_DIR/root, the prefix then being its /usr),
# then configure, build and run the consumer project against that prefix only, first through
# find_package(Velmar), then through `pkg-config --cflags --libs velmar`.
cmake_minimum_required(VERSION 3.25)

foreach(var IN ITEMS VELMAR_BUILD_DIR CONSUMER_SOURCE_DIR WORK_DIR GENERATOR CXX_COMPILER)
  if(NOT DEFINED ${var} OR "${${var}}" STREQUAL "")
    message(FATAL_ERROR "ConsumerTest.cmake needs -D${var}=...")
  endif()
endforeach()

set(prefix "${WORK_DIR}/prefix")
set(consumer_build "${WORK_DIR}/build")
file(REMOVE_RECURSE "${WORK_DIR}")
file(MAKE_DIRECTORY "${WORK_DIR}")

# run(<what> <command>...): runs a command, fails the test with its output if it fails.
function(run what)
  execute_process(COMMAND ${ARGN}
    RESULT_VARIABLE result OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT result EQUAL 0)
    list(JOIN ARGN " " cmdline)
    message(FATAL_ERROR "${what} failed (${result}):\n  ${cmdline}\n${out}\n${err}")
  endif()
  set(run_output "${out}" PARENT_SCOPE)
endfunction()

# Nothing from the environment may redirect the install or the lookups.
set(ENV{DESTDIR} "")
unset(ENV{CMAKE_PREFIX_PATH})
unset(ENV{PKG_CONFIG_PATH})
set(ENV{LD_LIBRARY_PATH} "")

# 1. Install, or package and unpack.
if(PACKAGES)
  set(prefix "${WORK_DIR}/root/usr")
  run("cpack" cpack -G DEB -B "${WORK_DIR}/debs" --config "${VELMAR_BUILD_DIR}/CPackConfig.cmake")
  file(GLOB debs "${WORK_DIR}/debs/*.deb")
  foreach(deb IN LISTS debs)
    run("dpkg-deb -x ${deb}" dpkg-deb -x "${deb}" "${WORK_DIR}/root")
    run("dpkg-deb -f ${deb}" dpkg-deb -f "${deb}" Package)
    string(STRIP "${run_output}" package)
    # Every package names its licence.
    if(NOT EXISTS "${prefix}/share/doc/${package}/copyright")
      message(FATAL_ERROR "${package} has no share/doc/${package}/copyright")
    endif()
    list(APPEND packages ${package})
  endforeach()
  list(SORT packages)
  if(NOT packages MATCHES "^libvelmar-dev;libvelmar[0-9]+;(thornquill-upload;)?velmar$")
    message(FATAL_ERROR "unexpected packages: ${packages}")
  endif()
  if(NOT EXISTS "${prefix}/share/man/man1/velmar.1")
    message(FATAL_ERROR "the velmar package has no man page")
  endif()
else()
  set(config_args)
  if(VELMAR_BUILD_CONFIG)
    set(config_args --config "${VELMAR_BUILD_CONFIG}")
  endif()
  run("install" "${CMAKE_COMMAND}" --install "${VELMAR_BUILD_DIR}" --prefix "${prefix}" ${config_args})
endif()

file(GLOB_RECURSE config_file LIST_DIRECTORIES false "${prefix}/*/VelmarConfig.cmake")
file(GLOB_RECURSE pc_file LIST_DIRECTORIES false "${prefix}/*/pkgconfig/velmar.pc")
file(GLOB_RECURSE library LIST_DIRECTORIES false "${prefix}/*/libvelmar.so" "${prefix}/*/libvelmar.a")
foreach(var IN ITEMS config_file pc_file library)
  list(LENGTH ${var} count)
  if(NOT count EQUAL 1)
    message(FATAL_ERROR "expected exactly one installed ${var}, found: '${${var}}'")
  endif()
endforeach()
foreach(header IN ITEMS session/FTPSessionClass.h platform/TextEncoding.h)
  if(NOT EXISTS "${prefix}/include/velmar/${header}")
    message(FATAL_ERROR "header not installed: include/velmar/${header}")
  endif()
endforeach()
get_filename_component(libdir "${library}" DIRECTORY)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{LD_LIBRARY_PATH} "${libdir}")

# An instrumented library needs an instrumented consumer (the sanitizer runtime comes first).
set(sanitize_flags "")
if(SANITIZE)
  set(sanitize_flags "-fsanitize=address,undefined -fno-omit-frame-pointer")
endif()

set(configure_args -G "${GENERATOR}"
  "-DCMAKE_CXX_COMPILER=${CXX_COMPILER}"
  "-DCMAKE_PREFIX_PATH=${prefix}"
  -DCMAKE_BUILD_TYPE=Debug
  "-DCMAKE_CXX_FLAGS=${sanitize_flags}"
  "-DCMAKE_EXE_LINKER_FLAGS=${sanitize_flags}"
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF)
if(CXX_LAUNCHER)
  list(APPEND configure_args "-DCMAKE_CXX_COMPILER_LAUNCHER=${CXX_LAUNCHER}")
endif()

# 2. find_package(Velmar): a version of another major release must be refused.
execute_process(COMMAND "${CMAKE_COMMAND}" -S "${CONSUMER_SOURCE_DIR}" -B "${WORK_DIR}/refuse"
    ${configure_args} -DVELMAR_REQUIRED_VERSION=6.0
  RESULT_VARIABLE result OUTPUT_QUIET ERROR_VARIABLE err)
if(result EQUAL 0 OR NOT err MATCHES "Velmar/VelmarConfig.cmake, version: ")
  message(FATAL_ERROR "find_package(Velmar 6.0) should be refused by the version file:\n${err}")
endif()

run("consumer configure" "${CMAKE_COMMAND}" -S "${CONSUMER_SOURCE_DIR}" -B "${consumer_build}"
  ${configure_args} -DVELMAR_REQUIRED_VERSION=5.0)
file(STRINGS "${consumer_build}/CMakeCache.txt" velmar_dir REGEX "^Velmar_DIR:")
string(FIND "${velmar_dir}" "=${prefix}/" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the consumer found Velmar outside the install prefix: ${velmar_dir}")
endif()
run("consumer build" "${CMAKE_COMMAND}" --build "${consumer_build}")
run("consumer run (find_package)" "${consumer_build}/velmar-consumer")
message(STATUS "find_package: ${run_output}")

# 3. pkg-config, with the version recorded in velmar.pc.
find_program(PKG_CONFIG pkg-config REQUIRED)
set(ENV{PKG_CONFIG_PATH} "${pc_dir}")
run("pkg-config --modversion" "${PKG_CONFIG}" --modversion velmar)
string(STRIP "${run_output}" pc_version)
run("pkg-config --cflags --libs" "${PKG_CONFIG}" --cflags --libs velmar)
separate_arguments(pc_flags UNIX_COMMAND "${run_output}")
if(NOT pc_flags MATCHES "-I${prefix}/[^;]*include/velmar")
  message(FATAL_ERROR "pkg-config cflags do not point into the prefix: ${pc_flags}")
endif()
separate_arguments(sanitize_list UNIX_COMMAND "${sanitize_flags}")
set(pc_binary "${WORK_DIR}/velmar-consumer-pkgconfig")
run("consumer build (pkg-config)" "${CXX_COMPILER}" -std=c++20 -Wall -Wextra ${sanitize_list}
  "-DVELMAR_EXPECTED_VERSION=\"${pc_version}\""
  "${CONSUMER_SOURCE_DIR}/main.cpp" -o "${pc_binary}" ${pc_flags})
run("consumer run (pkg-config)" "${pc_binary}")
message(STATUS "pkg-config: ${run_output}")

# All installed headers together compile from the prefix alone: none may include a header
# that stays behind in the source tree.
run("pkg-config --cflags" "${PKG_CONFIG}" --cflags velmar)
separate_arguments(pc_cflags UNIX_COMMAND "${run_output}")
file(GLOB_RECURSE headers RELATIVE "${prefix}/include/velmar" "${prefix}/include/velmar/*.h")
list(SORT headers)
set(unit "${WORK_DIR}/all-headers.cpp")
file(WRITE "${unit}" "")
foreach(header IN LISTS headers)
  file(APPEND "${unit}" "#include \"${header}\"\n")
endforeach()
run("compiling every installed header" "${CXX_COMPILER}" -std=c++20 -fsyntax-only -Wall -Wextra
  ${pc_cflags} "${unit}")

# 4. The installed shell starts from the prefix and finds its library without help.
unset(ENV{LD_LIBRARY_PATH})
file(GLOB shell "${prefix}/bin/velmar")
if(NOT shell)
  message(FATAL_ERROR "the shell was not installed as bin/velmar")
endif()
run("installed shell" "${shell}" -e quit)
