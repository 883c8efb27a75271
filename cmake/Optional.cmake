# The library builds everywhere; tools and tests are left out, with a warning, where a package they need is missing.
# The scripts install what is missing first.
function(talvex_leave_out_unless_found option what)
  foreach(package ${ARGN})
    find_package(${package} QUIET)
    if(NOT ${package}_FOUND)
      message(WARNING "${package} is missing: ${what} are not built (scripts/packages.sh lists the Debian packages)")
      set(${option} OFF PARENT_SCOPE)
      return()
    endif()
  endforeach()
endfunction()

if(TALVEX_BUILD_TOOLS)
  talvex_leave_out_unless_found(TALVEX_BUILD_TOOLS "emulator and satctl" CLI11 nlohmann_json pugixml OpenSSL)
endif()
if(TALVEX_BUILD_HUB)
  # Boost's own file tells its version.
  set(Boost_NO_WARN_NEW_VERSIONS ON)
  talvex_leave_out_unless_found(TALVEX_BUILD_HUB "hub"
    CLI11 nlohmann_json pugixml OpenSSL SQLiteCpp tomlplusplus boost_url)
endif()
if(TALVEX_BUILD_TESTS)
  talvex_leave_out_unless_found(TALVEX_BUILD_TESTS "the tests" GTest Python3)
endif()
