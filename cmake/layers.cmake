# A layer is a static library of its folder; the test of a file lies beside it as …_test.cpp and goes into one test
# program per layer. LINK names the layers below (and the libraries) that its headers may include.
function(weir_layer name)
  cmake_parse_arguments(LAYER "" "" "LINK;PRIVATE_LINK" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS *.cpp)
  set(tests ${sources})
  list(FILTER tests INCLUDE REGEX "_test\\.cpp$")
  list(FILTER sources EXCLUDE REGEX "_test\\.cpp$")
  add_library(weir_${name} STATIC ${sources})
  target_include_directories(weir_${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(weir_${name} PUBLIC ${LAYER_LINK} PRIVATE ${LAYER_PRIVATE_LINK})
  weir_precompile_headers(weir_${name})
  if(BUILD_TESTING AND tests)
    weir_tests(${name}_test ${tests})
    target_link_libraries(${name}_test PRIVATE weir_${name})
  endif()
endfunction()

# A GoogleTest program whose cases ctest knows one by one.
function(weir_tests name)
  add_executable(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE weir_test_support GTest::gtest GTest::gtest_main)
  weir_precompile_headers(${name})
  gtest_discover_tests(${name} TEST_PREFIX "${name}." DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# Reading the libraries' headers and making their templates was most of the time of a build: it is done once, in the
# lowest layer. A source includes what it uses all the same; the asan preset and scripts/check build without.
function(weir_precompile_headers target)
  if(target STREQUAL "weir_platform")
    target_precompile_headers(${target} PRIVATE <fmt/core.h> <algorithm> <chrono> <filesystem> <functional> <memory>
      <nlohmann/json.hpp> <optional> <string> <vector>)
  else()
    target_precompile_headers(${target} REUSE_FROM weir_platform)
  endif()
endfunction()
