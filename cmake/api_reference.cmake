# The API reference, in build/docs/api. Each warning of doxygen is an error.
find_program(DOXYGEN doxygen REQUIRED)
set(apiReferenceDir ${PROJECT_SOURCE_DIR}/build/docs/api)
file(MAKE_DIRECTORY ${apiReferenceDir})
configure_file(${CMAKE_CURRENT_LIST_DIR}/Doxyfile.in ${PROJECT_BINARY_DIR}/Doxyfile @ONLY)
set(apiReferenceCommand ${DOXYGEN} ${PROJECT_BINARY_DIR}/Doxyfile)
add_custom_target(corvalint_api_reference COMMAND ${apiReferenceCommand} VERBATIM)
