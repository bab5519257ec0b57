# find_package(taskwarden): taskwarden::taskwarden, the shared library, and
# taskwarden::taskwarden_static. The latter is C++ inside: a project that links it enables CXX.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include("${CMAKE_CURRENT_LIST_DIR}/taskwarden-targets.cmake")
