# The libraries of the host platform, one per folder of src/. Projects that need only some of them, for another machine
# or another compiler, include this file and add their folders.
set(PLATFORM_FOLDER "${CMAKE_CURRENT_LIST_DIR}")

# platform_find(TARGET PACKAGE ARGUMENT...): find_package, unless the project has defined the target itself.
macro(platform_find target)
  if(NOT TARGET ${target})
    find_package(${ARGN} REQUIRED)
  endif()
endmacro()

if(NOT TARGET thread-safety)
  add_subdirectory("${PLATFORM_FOLDER}/../thread-safety" thread-safety)
endif()

# The contract headers, the only headers of the platform that the product may use.
if(NOT TARGET platform-contract)
  add_library(platform-contract INTERFACE)
  target_include_directories(platform-contract INTERFACE ${PLATFORM_FOLDER}/contract)
  target_link_libraries(platform-contract INTERFACE thread-safety)
  target_include_directories(platform-contract SYSTEM INTERFACE ${Boost_INCLUDE_DIRS})
endif()

# platform_headers(NAME): a library's headers without the library, for a program that implements them itself.
function(platform_headers name)
  add_library(platform-${name} INTERFACE)
  target_include_directories(platform-${name} INTERFACE ${PLATFORM_FOLDER}/src/${name}/include)
endfunction()

# platform_library(NAME SOURCE... [USES NAME...] [LINKS TARGET...])
#
# Defines the library in the current folder. It sees the contract, its own headers and those of the libraries that it
# USES; tests/check-includes.sh reads the allowed dependencies from these calls. LINKS are third-party libraries. The
# headers in include/NAME/ are for the platform's other libraries, those in platform/host/NAME/ for all programs.
function(platform_library name)
  cmake_parse_arguments(PARSE_ARGV 1 ARG "" "" "USES;LINKS")
  add_library(platform-${name} STATIC ${ARG_UNPARSED_ARGUMENTS})
  # Other libraries use the whole platform, so all its symbols are visible.
  set_target_properties(platform-${name} PROPERTIES CXX_VISIBILITY_PRESET default VISIBILITY_INLINES_HIDDEN OFF)
  foreach(folder ${PLATFORM_FOLDER}/host/${name} ${CMAKE_CURRENT_SOURCE_DIR}/include)
    if(IS_DIRECTORY ${folder})
      target_include_directories(platform-${name} PUBLIC ${folder})
    endif()
  endforeach()
  list(TRANSFORM ARG_USES PREPEND platform-)
  foreach(used IN LISTS ARG_USES)
    if(NOT TARGET ${used})
      message(FATAL_ERROR "platform-${name} uses ${used}, which is not defined before it: dependencies are one-way")
    endif()
  endforeach()
  target_link_libraries(platform-${name} PUBLIC platform-contract PRIVATE ${ARG_USES} ${ARG_LINKS})
endfunction()
