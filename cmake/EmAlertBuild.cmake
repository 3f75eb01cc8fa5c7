# What every target of the project shares: the language, the warnings, and one library for each folder.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Kind of build" FORCE)
endif()

# A small library matters more to the host than what -O3 would gain.
string(REPLACE "-O3" "-O2" CMAKE_CXX_FLAGS_RELEASE "${CMAKE_CXX_FLAGS_RELEASE}")

# A compiler cache, where there is one, makes sanitized and repeated builds cheap.
find_program(EM_CCACHE ccache)
if(EM_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${EM_CCACHE})
endif()

option(EM_WARNINGS_ARE_ERRORS "Treat compiler warnings as errors" OFF)
set(EM_SANITIZE "" CACHE STRING "Sanitizers for all targets, as -fsanitize= takes them")

add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
  -Wformat=2 -Wold-style-cast -Wcast-qual -Wundef)
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

# em_include_root(TARGET FOLDER VISIBILITY): lets TARGET include "FOLDER/Header.h". The headers are reached through a
# directory that holds nothing but this one folder, so that including a folder that was not linked does not compile.
function(em_include_root target folder visibility)
  set(root ${CMAKE_BINARY_DIR}/include/${folder})
  file(MAKE_DIRECTORY ${root})
  file(CREATE_LINK ${CMAKE_SOURCE_DIR}/${folder} ${root}/${folder} SYMBOLIC)
  target_include_directories(${target} ${visibility} $<BUILD_INTERFACE:${root}>)
endfunction()

# em_add_library(FOLDER SOURCES ... [USES ...]): the static library em_FOLDER of one source folder.
function(em_add_library folder)
  cmake_parse_arguments(ARG "" "" "SOURCES;USES" ${ARGN})
  add_library(em_${folder} STATIC ${ARG_SOURCES})
  em_include_root(em_${folder} ${folder} PUBLIC)
  target_link_libraries(em_${folder} PUBLIC ${ARG_USES})
endfunction()
