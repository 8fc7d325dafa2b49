# Common warning set for every target of ours.
function(motilane_warnings target)
  # -Wshadow=local is GCC's; clang (the fuzz build) has no such option.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow=local
                                             -Wnon-virtual-dtor -Wno-unused-parameter)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wnon-virtual-dtor -Wno-unused-parameter)
  endif()
  if(MOTILANE_VALIDATE)
    target_compile_definitions(${target} PRIVATE MOTILANE_VALIDATE=1)
  endif()
endfunction()

# A library made of every .cpp below DIR. Libraries are shared: node types and
# commands enter their registries from static constructors, which a static
# archive would let the linker drop.
# Further arguments are the libraries it builds on.
function(motilane_library target dir)
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS ${dir}/*.cpp)
  if(srcs)
    add_library(${target} SHARED ${srcs})
    target_include_directories(${target} PUBLIC ${CMAKE_SOURCE_DIR})
    target_link_libraries(${target} PUBLIC ${ARGN})
    motilane_warnings(${target})
  else()
    # A layer with no sources yet still carries its dependencies.
    add_library(${target} INTERFACE)
    target_include_directories(${target} INTERFACE ${CMAKE_SOURCE_DIR})
    target_link_libraries(${target} INTERFACE ${ARGN})
  endif()
endfunction()

