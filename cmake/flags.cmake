# One interface target carries the language level, the warnings, the hardening and the Qt
# definitions; morvane_library() makes a room's static library on top of it.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_AUTOMOC ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)

find_program(MORVANE_CCACHE ccache)
if(MORVANE_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  # Precompiled headers only hit the cache with these two liberties; both are safe here, since
  # no source looks at its own build time.
  set(CMAKE_CXX_COMPILER_LAUNCHER
      ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${MORVANE_CCACHE})
endif()

add_library(morvane_flags INTERFACE)
target_include_directories(morvane_flags INTERFACE "${PROJECT_SOURCE_DIR}/src")
target_compile_definitions(
  morvane_flags
  INTERFACE QT_NO_CAST_FROM_ASCII
            QT_NO_CAST_TO_ASCII
            QT_NO_CAST_FROM_BYTEARRAY
            QT_NO_URL_CAST_FROM_STRING
            QT_NO_FOREACH
            QT_DEPRECATED_WARNINGS_SINCE=0x050B00
            MORVANE_VERSION="${PROJECT_VERSION}")
target_compile_options(
  morvane_flags
  INTERFACE -Wall
            -Wextra
            -Wshadow
            -Wnon-virtual-dtor
            -Woverloaded-virtual
            -Wold-style-cast
            $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess>
            $<$<BOOL:${MORVANE_WERROR}>:-Werror>)

if(MORVANE_SANITIZE)
  target_compile_options(morvane_flags INTERFACE -fsanitize=${MORVANE_SANITIZE}
                                                 -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(morvane_flags INTERFACE -fsanitize=${MORVANE_SANITIZE})
else()
  # Fortified libc calls need the optimiser and get in the way of the sanitizers' own checks.
  target_compile_options(morvane_flags INTERFACE $<$<CONFIG:Release>:-fstack-protector-strong>)
  target_compile_definitions(morvane_flags INTERFACE $<$<CONFIG:Release>:_FORTIFY_SOURCE=2>)
  target_link_options(morvane_flags INTERFACE $<$<CONFIG:Release>:-pie> -Wl,-z,relro,-z,now)
endif()

# Two precompiled headers for all targets: one of Core types for the engines, one that adds the
# widgets for the user interface.
option(MORVANE_PCH "Use the precompiled headers; off, every file must include what it uses" ON)
function(morvane_precompiled target header)
  file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp" "// Carries the precompiled header.\n")
  add_library(${target} STATIC "${CMAKE_CURRENT_BINARY_DIR}/${target}.cpp")
  set_target_properties(${target} PROPERTIES AUTOMOC OFF)
  target_link_libraries(${target} PUBLIC morvane_flags ${ARGN})
  if(MORVANE_PCH)
    target_precompile_headers(${target} PRIVATE "${PROJECT_SOURCE_DIR}/cmake/${header}")
  endif()
endfunction()

morvane_precompiled(morvane_pch_core precompiled_core.h Qt5::Core)
morvane_precompiled(morvane_pch_widgets precompiled_widgets.h Qt5::Widgets)

# Gives a target the flags and the precompiled header of its layer. WIDGETS chooses the larger one.
function(morvane_target target)
  cmake_parse_arguments(ARG "WIDGETS" "" "" ${ARGN})
  if(ARG_WIDGETS)
    target_link_libraries(${target} PUBLIC morvane_flags Qt5::Widgets)
    if(MORVANE_PCH)
      target_precompile_headers(${target} REUSE_FROM morvane_pch_widgets)
    endif()
  else()
    target_link_libraries(${target} PUBLIC morvane_flags Qt5::Core)
    if(MORVANE_PCH)
      target_precompile_headers(${target} REUSE_FROM morvane_pch_core)
    endif()
  endif()
endfunction()

# morvane_library(name [WIDGETS] SOURCES file... [LINK target...])
# One static library a room, with an explicit list of sources. What LINK names is all that the
# room may lean on: an engine that never links Qt5::Widgets cannot grow a dialog.
function(morvane_library name)
  cmake_parse_arguments(ARG "WIDGETS" "" "SOURCES;LINK" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  if(ARG_WIDGETS)
    morvane_target(${name} WIDGETS)
  else()
    morvane_target(${name})
  endif()
  target_link_libraries(${name} PUBLIC ${ARG_LINK})
endfunction()
