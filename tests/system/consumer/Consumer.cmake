# Uses the package of common/ as other programs do: installs it, finds it,
# builds against it and runs the result. An installation of the daemon alone
# leaves it out.

set(CONSUMER_DIR ${PROJECT_BINARY_DIR}/consumer)

# Removes an earlier package: its files would hide that this one lacks them.
add_test(NAME consumer_starts_empty
         COMMAND ${CMAKE_COMMAND} -E rm -rf ${CONSUMER_DIR}/stage
                 ${CONSUMER_DIR}/build)
set_tests_properties(consumer_starts_empty PROPERTIES FIXTURES_SETUP
                                                      empty_prefix)

add_test(NAME consumer_installs_package
         COMMAND ${CMAKE_COMMAND} --install ${PROJECT_BINARY_DIR} --component
                 common --prefix ${CONSUMER_DIR}/stage)
set_tests_properties(
  consumer_installs_package PROPERTIES FIXTURES_REQUIRED empty_prefix
                                       FIXTURES_SETUP installed_package)

# The same compiler and flags: a sanitizer's libraries do not link without them.
add_test(
  NAME consumer_builds_and_runs
  COMMAND
    ${CMAKE_CTEST_COMMAND} --build-and-test
    ${CMAKE_CURRENT_SOURCE_DIR}/consumer ${CONSUMER_DIR}/build
    --build-generator ${CMAKE_GENERATOR} --build-options
    -DCMAKE_PREFIX_PATH=${CONSUMER_DIR}/stage
    -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE}
    -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
    -DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS} --test-command
    ${CMAKE_CTEST_COMMAND} --output-on-failure)
set_tests_properties(
  consumer_builds_and_runs PROPERTIES FIXTURES_REQUIRED installed_package
                                      TIMEOUT 300)

add_test(
  NAME consumer_daemon_comes_without_package
  COMMAND
    ${CMAKE_COMMAND} -DBUILD_DIR=${PROJECT_BINARY_DIR}
    -DSTAGE=${CONSUMER_DIR}/daemon -P
    ${CMAKE_CURRENT_SOURCE_DIR}/consumer/CheckDaemonAlone.cmake)
