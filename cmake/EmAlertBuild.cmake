# SPDX-License-Identifier: Apache-2.0

# What every target of the project shares: the language, the warnings, and one library for each folder.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
endif()

# A small library matters more to the host than what -O3 would gain.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

# Optimising across sources makes the module a fifth smaller.
include(CheckIPOSupported)
check_ipo_supported(RESULT EM_HAS_IPO OUTPUT EM_IPO_OUTPUT LANGUAGES CXX)
set(CMAKE_INTERPROCEDURAL_OPTIMIZATION_RELEASE ${EM_HAS_IPO})

# A compiler cache, where there is one, makes sanitized and repeated builds cheap.
find_program(EM_CCACHE ccache)
if(EM_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${EM_CCACHE})
endif()

option(EM_WARNINGS_ARE_ERRORS "Treat compiler warnings as errors" OFF)
set(EM_SANITIZE "" CACHE STRING "Sanitizers for all targets, as -fsanitize= takes them")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wformat=2 -Wold-style-cast -Wcast-qual -Wundef -Wconversion -Wsign-conversion)
if(EM_WARNINGS_ARE_ERRORS)
  add_compile_options(-Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # A unique symbol keeps a library mapped after dlclose; the module must really unload.
  add_compile_options(-fno-gnu-unique)
  # Optimised builds with gcc 12 warn of overlaps in std::string that are none (gcc bug 105651).
  add_compile_options(-Wno-restrict)
elseif(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  add_compile_options(-Wthread-safety)
endif()
# The module runs as root in somebody's agent. Fortified calls go by other names, so only what is shipped has them.
add_link_options(-Wl,-z,relro,-z,now)
if(NOT EM_SANITIZE)
  add_compile_options("$<$<CONFIG:Release>:-fstack-protector-strong;-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()
add_compile_options(-ffunction-sections -fdata-sections)  # the module leaves out what it does not use
if(EM_SANITIZE)
  add_compile_options(-fsanitize=${EM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${EM_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)  # gcc 12 loses track of <regex> in instrumented code
    # This check probes memory through a pipe, and reports an error where a test takes the descriptors away.
    add_compile_options(-fno-sanitize=vptr)
  endif()
endif()

# em_include_files(TARGET VISIBILITY FILE ...), em_include_room(TARGET VISIBILITY ROOM): let TARGET include these headers,
# or all of a room (a folder such as platform/files), by their path from the top. Each room is reached through a directory
# of links that holds nothing else, so that including what was not linked does not compile.
function(em_include_files target visibility)
  set(root ${PROJECT_BINARY_DIR}/include/${target}-files)
  foreach(file ${ARGN})
    get_filename_component(folder ${file} DIRECTORY)
    file(MAKE_DIRECTORY ${root}/${folder})
    file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${file} ${root}/${file} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${visibility} $<BUILD_INTERFACE:${root}>)
endfunction()

function(em_include_room target visibility room)
  string(REPLACE "/" "_" name ${room})
  set(root ${PROJECT_BINARY_DIR}/include/${name})
  get_filename_component(folder ${room} DIRECTORY)
  file(MAKE_DIRECTORY ${root}/${folder})
  file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${room} ${root}/${room} SYMBOLIC)
  target_include_directories(${target} ${visibility} $<BUILD_INTERFACE:${root}>)
endfunction()

# em_add_library(ROOM [SOURCES ...] [USES ...] [HIDES ...]): the library of one room, em_platform_files of platform/files.
# Who links it sees the headers of the room and of what it USES, not of what it HIDES.
function(em_add_library room)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES;HIDES" ${ARGN})
  string(REPLACE "/" "_" name em_${room})
  string(REPLACE "em_em_" "em_" name ${name})
  if(ARG_SOURCES)
    add_library(${name} STATIC ${ARG_SOURCES})
    em_include_room(${name} PUBLIC ${room})
    target_link_libraries(${name} PUBLIC ${ARG_USES} PRIVATE ${ARG_HIDES})
  else()
    add_library(${name} INTERFACE)
    em_include_room(${name} INTERFACE ${room})
    target_link_libraries(${name} INTERFACE ${ARG_USES})
  endif()
endfunction()
