# Header-only libraries from Debian's archive (tools/install-deps.sh installs them). Each is
# reached through a folder of the build that holds only a link to the library's own header
# folder, so that no other system header comes in: the MinGW build must never see /usr/include.
include_guard(GLOBAL)

function(tarnwick_header_library target header_folder probe)
  find_path(${target}_ROOT ${probe} PATHS /usr/include NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
  if(NOT ${target}_ROOT)
    message(FATAL_ERROR "${probe} not found: run tools/install-deps.sh")
  endif()
  set(local ${CMAKE_BINARY_DIR}/third_party/${target})
  file(MAKE_DIRECTORY ${local})
  file(CREATE_LINK ${${target}_ROOT}/${header_folder} ${local}/${header_folder} SYMBOLIC)
  add_library(${target} INTERFACE)
  target_include_directories(${target} SYSTEM INTERFACE ${local})
endfunction()

# JSON for Modern C++ (nlohmann-json3-dev): JSON output with correct escaping.
if(NOT TARGET tw_json)
  tarnwick_header_library(tw_json nlohmann nlohmann/json.hpp)
endif()
# CLI11 (libcli11-dev): command-line parsing with usage text and errors.
if(NOT TARGET tw_cli11)
  tarnwick_header_library(tw_cli11 CLI CLI/CLI.hpp)
endif()
