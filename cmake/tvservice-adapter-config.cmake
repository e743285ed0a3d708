include(CMakeFindDependencyMacro)
find_dependency(Boost 1.73)
include("${CMAKE_CURRENT_LIST_DIR}/tvservice-adapter-targets.cmake")
