# flowlane_options: what every target of the project is compiled and linked with. Nobody replaces functions of the
# archives at run time, so the compiler may inline them although their code is position-independent.
add_library(flowlane_options INTERFACE)
target_compile_options(flowlane_options INTERFACE
  -fno-semantic-interposition
  -Wall -Wextra -Wpedantic -Wconversion -Wshadow
  $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor -Woverloaded-virtual>
  $<$<BOOL:${FLOWLANE_WERROR}>:-Werror>)
target_compile_definitions(flowlane_options INTERFACE _GNU_SOURCE)
if(FLOWLANE_SANITIZE)
  target_compile_options(flowlane_options INTERFACE
    -fsanitize=${FLOWLANE_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(flowlane_options INTERFACE -fsanitize=${FLOWLANE_SANITIZE})
endif()

# flowlane_program(name): what a program needs that tests send signals to.
function(flowlane_program name)
  target_link_libraries(${name} PRIVATE flowlane_options)
  if(FLOWLANE_SANITIZE MATCHES thread)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/thread_sanitizer_start.c)
  endif()
endfunction()

# flowlane_toolbox_library(name source...): the objects of one toolbox folder. What it may include is what it is linked
# to.
function(flowlane_toolbox_library name)
  add_library(${name} OBJECT ${ARGN})
  target_include_directories(${name} PUBLIC ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC flowlane_options Threads::Threads)
endfunction()
