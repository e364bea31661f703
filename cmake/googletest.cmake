# SPDX-License-Identifier: MIT
# GTest::gtest_main: the system's own, or built here where that is for another machine.
set(PLINTH_GTEST_SOURCES "" CACHE PATH "GoogleTest's sources, to be built for the tests")
if(NOT PLINTH_GTEST_SOURCES)
  find_package(GTest QUIET)
  if(NOT GTest_FOUND)
    message(FATAL_ERROR "No GoogleTest here (Debian: package libgtest-dev). \
-DPLINTH_TESTS=OFF builds without the tests; cmake --preset install, all that is to be installed.")
  endif()
elseif(NOT TARGET GTest::gtest_main)
  find_package(Threads REQUIRED)
  add_library(gtest_main STATIC EXCLUDE_FROM_ALL
    ${PLINTH_GTEST_SOURCES}/src/gtest-all.cc ${PLINTH_GTEST_SOURCES}/src/gtest_main.cc)
  set_target_properties(gtest_main PROPERTIES CXX_STANDARD 20)
  target_include_directories(gtest_main SYSTEM PUBLIC ${PLINTH_GTEST_SOURCES}/include)
  target_include_directories(gtest_main PRIVATE ${PLINTH_GTEST_SOURCES})
  target_link_libraries(gtest_main PUBLIC Threads::Threads)
  add_library(GTest::gtest_main ALIAS gtest_main)
endif()
include(GoogleTest)
