# Warnings are errors on every compiler we build with.
function(tarnwick_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /WX /permissive- /utf-8)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
                                             -Wold-style-cast -Wcast-align -Woverloaded-virtual -Werror)
    # GCC 12 reports std::vector and std::string growth inlined at -O2/-O3 as out-of-bounds or
    # overlapping accesses that cannot happen (its object-size tracking loses the allocation);
    # these checks give only such false positives here. Real out-of-bounds accesses are caught by
    # the asan preset.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
      target_compile_options(${target} PRIVATE -Wno-array-bounds -Wno-stringop-overread
                                               -Wno-stringop-overflow -Wno-restrict)
    endif()
  endif()
endfunction()

# A static library made of every .cpp directly in the given folders (not their sub-folders).
function(tarnwick_library target)
  cmake_parse_arguments(ARG "" "" "DIRS;DEPS" ${ARGN})
  set(sources "")
  foreach(dir IN LISTS ARG_DIRS)
    file(GLOB found CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${dir}/*.cpp)
    list(APPEND sources ${found})
  endforeach()
  if(NOT sources)
    set(sources ${PROJECT_SOURCE_DIR}/cmake/empty.cpp)
  endif()
  add_library(${target} STATIC ${sources})
  target_include_directories(${target} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${target} PUBLIC ${ARG_DEPS})
  tarnwick_warnings(${target})
endfunction()
