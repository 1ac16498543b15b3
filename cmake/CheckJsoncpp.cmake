# One release of jsoncpp declares operator[] and isMember by string_view only in
# C++17 and later, so a library built as C++11 lacks them. This check replaces a
# page of undefined references with a message.

include(CheckCXXSourceCompiles)
include(CMakePushCheckState)

cmake_push_check_state(RESET)
set(CMAKE_REQUIRED_LIBRARIES PkgConfig::jsoncpp)
set(CMAKE_REQUIRED_FLAGS -std=c++20)
check_cxx_source_compiles(
  "#include <json/json.h>
  #include <string>
  int main() {
    Json::Value value;
    value[\"a\"];
    return value.isMember(std::string(\"a\"));
  }"
  LAUNCHER_JSONCPP_LINKS)
cmake_pop_check_state()
if(NOT LAUNCHER_JSONCPP_LINKS)
  message(
    FATAL_ERROR
      "jsoncpp ${jsoncpp_VERSION} cannot be linked from C++20. "
      "jsoncpp 1.9.7 is known to fail: upgrade to 1.9.8.")
endif()
