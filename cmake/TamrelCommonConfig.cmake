# find_package(TamrelCommon) gives the targets
#
#   TamrelCommon::util   string helpers, INI profile reader, wildcard matching,
#                        process helpers
#   TamrelCommon::json   JsonObject; links jsoncpp, found by pkg-config
#
# Headers are included as "common/util/StringHelpers.h".

include(CMakeFindDependencyMacro)
find_dependency(PkgConfig)
pkg_check_modules(jsoncpp QUIET IMPORTED_TARGET jsoncpp>=1.9.5)
if(NOT jsoncpp_FOUND)
  set(TamrelCommon_FOUND FALSE)
  set(TamrelCommon_NOT_FOUND_MESSAGE "jsoncpp 1.9.5 or newer is missing.")
  return()
endif()

include(${CMAKE_CURRENT_LIST_DIR}/TamrelCommonTargets.cmake)
