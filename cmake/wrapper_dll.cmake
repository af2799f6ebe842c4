# The shipped library and what a host author needs with it, side by side in the tree's root.
set(definition ${CMAKE_CURRENT_SOURCE_DIR}/api/corvalint_wrapper.def)
set(publicHeader ${PROJECT_SOURCE_DIR}/include/corvalint_wrapper.h)

# The module definition alone decides what is exported.
add_library(corvalint_wrapper SHARED ${apiSources} ${definition})
corvalint_warnings(corvalint_wrapper)
target_compile_options(corvalint_wrapper PRIVATE -fvisibility=hidden)
target_link_libraries(corvalint_wrapper PRIVATE corvalint_core)
corvalint_version_resource(corvalint_wrapper corvalint_wrapper.dll
                           "MIDI bridge between iOS devices and Windows")
set_target_properties(corvalint_wrapper PROPERTIES
  PREFIX ""
  LINK_DEPENDS ${definition}
  RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}
  ARCHIVE_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/implib)

# Line numbers go into a file of their own; the DLL itself is shipped without them. These tools would
# write the time of day into the header again.
set(dll ${PROJECT_BINARY_DIR}/corvalint_wrapper.dll)
set(timeless ${CMAKE_COMMAND} -E env SOURCE_DATE_EPOCH=0)
add_custom_command(TARGET corvalint_wrapper POST_BUILD
  COMMAND ${timeless} ${CMAKE_OBJCOPY} --only-keep-debug ${dll} ${dll}.debug
  COMMAND ${timeless} ${CMAKE_STRIP} --strip-all ${dll}
  COMMAND ${timeless} ${CMAKE_OBJCOPY} --add-gnu-debuglink=${dll}.debug ${dll}
  VERBATIM)

# The import library for hosts is made in the form that Microsoft's linker writes itself; GNU ld
# reads it as well.
find_program(LLVM_DLLTOOL NAMES llvm-dlltool llvm-dlltool-14 REQUIRED)
set(importLibrary ${PROJECT_BINARY_DIR}/corvalint_wrapper.lib)
add_custom_command(OUTPUT ${importLibrary}
  COMMAND ${LLVM_DLLTOOL} -m i386:x86-64 -d ${definition} -D corvalint_wrapper.dll
          -l ${importLibrary}
  DEPENDS ${definition} VERBATIM)
set(copiedHeader ${PROJECT_BINARY_DIR}/corvalint_wrapper.h)
add_custom_command(OUTPUT ${copiedHeader}
  COMMAND ${CMAKE_COMMAND} -E copy ${publicHeader} ${copiedHeader}
  DEPENDS ${publicHeader} VERBATIM)
add_custom_target(corvalint_sdk ALL DEPENDS ${importLibrary} ${copiedHeader})
