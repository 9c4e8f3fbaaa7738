# One dlorigin for the whole test run, started and stopped by a CTest fixture
# (natively the build's own; for the Windows build under wine, a Linux
# dlorigin from the asan build). A suite that talks to it passes
# ${DL_ORIGIN_TEST_PROPERTIES} to dl_add_gtest(... PROPERTIES ...) and reads
# the origin's URL with dltest::OriginUrlFromEnvironment (support/OriginUrl.h).
# Running a suite by hand: start one with scripts/dlorigin-ctl.sh and set
# DLORIGIN_URL.
set(DL_ORIGIN_TEST_PROPERTIES "")
set(origin_dir ${PROJECT_BINARY_DIR}/tests/origin)
if(WIN32)
  set(DL_NATIVE_DLORIGIN "${PROJECT_SOURCE_DIR}/build/asan/bin/dlorigin" CACHE FILEPATH
    "A Linux dlorigin that the Windows suites under wine talk to")
  set(origin_binary ${DL_NATIVE_DLORIGIN})
  # wine maps the Linux root to drive Z:.
  set(origin_url_file "Z:${origin_dir}/url")
elseif(TARGET dlorigin)
  set(origin_binary $<TARGET_FILE:dlorigin>)
  set(origin_url_file "${origin_dir}/url")
else()
  message(STATUS "no dlorigin in this build: the suites that need an origin are left out")
  return()
endif()

add_test(NAME dl_origin_start
  COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/dlorigin-ctl.sh start ${origin_binary} ${origin_dir})
add_test(NAME dl_origin_stop
  COMMAND bash ${PROJECT_SOURCE_DIR}/scripts/dlorigin-ctl.sh stop ${origin_dir})
set_tests_properties(dl_origin_start PROPERTIES FIXTURES_SETUP dl_origin LABELS "integration;concurrency")
set_tests_properties(dl_origin_stop PROPERTIES FIXTURES_CLEANUP dl_origin LABELS "integration;concurrency")

set(DL_ORIGIN_TEST_PROPERTIES
  FIXTURES_REQUIRED dl_origin
  ENVIRONMENT DLORIGIN_URL_FILE=${origin_url_file})
