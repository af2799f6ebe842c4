# The same twenty functions as a native library, libcorvalint_wrapper.so in the tree's root: for
# hosts in languages that are tried out on this machine. It knows no MIDI devices.
set(definition ${CMAKE_CURRENT_SOURCE_DIR}/api/corvalint_wrapper.def)
set_target_properties(corvalint_core oscpack PROPERTIES POSITION_INDEPENDENT_CODE ON)

# Here too the module definition alone decides what is exported.
file(STRINGS ${definition} exportedNames REGEX "^    ")
list(TRANSFORM exportedNames STRIP)
list(JOIN exportedNames "; " exportedNames)
set(nativeExports ${PROJECT_BINARY_DIR}/corvalint_wrapper.map)
file(CONFIGURE OUTPUT ${nativeExports} CONTENT "{ global: @exportedNames@; local: *; };\n" @ONLY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${definition})

# corvalint_native_library(TARGET [SOURCE...]): the library, with more sources in it. Threads that
# never end run in it, so it is never unloaded.
function(corvalint_native_library target)
  set(nativeExports ${PROJECT_BINARY_DIR}/corvalint_wrapper.map)
  file(GLOB apiSources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/api/*.cpp)
  add_library(${target} SHARED ${apiSources} ${ARGN})
  corvalint_warnings(${target})
  target_compile_options(${target} PRIVATE -fvisibility=hidden)
  target_link_libraries(${target} PRIVATE corvalint_core)
  target_link_options(${target} PRIVATE -Wl,--version-script=${nativeExports} -Wl,-z,nodelete
                      -Wl,--no-undefined)
  set_target_properties(${target} PROPERTIES OUTPUT_NAME corvalint_wrapper
                        LINK_DEPENDS ${nativeExports})
endfunction()

corvalint_native_library(corvalint_wrapper)
set_target_properties(corvalint_wrapper PROPERTIES LIBRARY_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR})
