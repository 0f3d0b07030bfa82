# Shared settings for the project's own targets.

if(SETUP_SANITIZE)
  set(SETUP_SANITIZERS address,undefined)
elseif(SETUP_SANITIZE_THREADS)
  set(SETUP_SANITIZERS thread)
endif()

function(setup_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(SETUP_SANITIZERS)
    target_compile_options(${target} PRIVATE -fsanitize=${SETUP_SANITIZERS} -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${SETUP_SANITIZERS})
  endif()
endfunction()

# The libraries from the top down: each depends only on those after it.
set(SETUP_LIBRARY_ORDER setup_wizard setup_installer setup_plan setup_media setup_archive setup_core)

# One static library per folder. Its sources are the folder's .cpp/.h files; the
# folder's parent is the include root, so code includes "core/macrotable.h".
function(setup_library name)
  cmake_parse_arguments(ARG "" "" "LINK;PRIVATE_LINK" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS
       ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  if(NOT sources)
    # A subsystem that has no code yet still takes its place in the chain.
    add_library(${name} INTERFACE)
    target_link_libraries(${name} INTERFACE ${ARG_LINK})
    return()
  endif()
  add_library(${name} STATIC ${sources})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK})
  setup_warnings(${name})
  if(SETUP_SANITIZERS)
    target_link_options(${name} INTERFACE -fsanitize=${SETUP_SANITIZERS})
  endif()
  list(FIND SETUP_LIBRARY_ORDER ${name} position)
  if(position GREATER 0)
    list(SUBLIST SETUP_LIBRARY_ORDER 0 ${position} above)
    string(JOIN " -> " order ${SETUP_LIBRARY_ORDER})
    setup_forbid_links(${name} "a library links only those below it: ${order}" ${above})
  endif()
endfunction()

# Fails the configure step when target links one of the forbidden targets,
# directly or through another library.
function(setup_forbid_links target reason)
  set(pending ${target})
  set(seen "")
  while(pending)
    list(POP_FRONT pending current)
    if(current IN_LIST seen)
      continue()
    endif()
    list(APPEND seen ${current})
    if(current IN_LIST ARGN)
      message(FATAL_ERROR "${target} must not link ${current}; ${reason}")
    endif()
    if(TARGET ${current} AND NOT current MATCHES "^Qt6::")
      get_target_property(type ${current} TYPE)
      if(type STREQUAL "INTERFACE_LIBRARY")
        get_target_property(links ${current} INTERFACE_LINK_LIBRARIES)
      else()
        get_target_property(links ${current} LINK_LIBRARIES)
      endif()
      if(links)
        list(APPEND pending ${links})
      endif()
    endif()
  endwhile()
endfunction()

# Only the wizard may show widgets: a logic library must not pull QtWidgets in.
function(setup_forbid_widgets target)
  setup_forbid_links(${target} "only setup_wizard may" Qt6::Widgets)
endfunction()

# A QtTest binary: tests/<library>/tst_<name>.cpp linked against the given libraries.
function(setup_test name)
  cmake_parse_arguments(ARG "" "" "LINK;LABELS;SOURCES" ${ARGN})
  add_executable(${name} ${name}.cpp ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LINK} Qt6::Test)
  target_compile_definitions(${name} PRIVATE
    SETUP_BINARY_DIR="${PROJECT_BINARY_DIR}"
    SETUP_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  setup_warnings(${name})
  add_test(NAME ${name} COMMAND ${name})
  set_tests_properties(${name} PROPERTIES
    ENVIRONMENT "QT_QPA_PLATFORM=offscreen"
    TIMEOUT 300)
  if(ARG_LABELS)
    set_tests_properties(${name} PROPERTIES LABELS "${ARG_LABELS}")
  endif()
endfunction()
