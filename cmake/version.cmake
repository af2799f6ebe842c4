# The version stands in the file VERSION alone. Programs that show it link corvalint_version, which
# defines CORVALINT_VERSION as a string.
add_library(corvalint_version INTERFACE)
target_compile_definitions(corvalint_version INTERFACE CORVALINT_VERSION="${PROJECT_VERSION}")

# corvalint_version_resource(TARGET FILE DESCRIPTION): gives a Windows module the version resource
# that Explorer shows. FILE is the module's file name.
function(corvalint_version_resource target file description)
  get_filename_component(name ${file} NAME_WE)
  get_filename_component(extension ${file} LAST_EXT)
  set(fileType 0x1L)  # VFT_APP
  if(extension STREQUAL ".dll")
    set(fileType 0x2L)  # VFT_DLL
  endif()
  string(REPLACE "." "," numbers "${PROJECT_VERSION},0")
  set(resource ${PROJECT_BINARY_DIR}/resources/${name}.rc)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/version.rc.in ${resource} @ONLY)
  target_sources(${target} PRIVATE ${resource})
endfunction()
