# The OSC library, from Debian's source package with the project's corrections (oscpack.patch).
# Every build tree shares one download. Headers: #include <osc/OscOutboundPacketStream.h>.
set(CORVALINT_DEPS_DIR ${CMAKE_SOURCE_DIR}/build/deps CACHE PATH "Where fetched sources are kept")

execute_process(COMMAND sh ${CMAKE_SOURCE_DIR}/cmake/prepare_oscpack.sh ${CORVALINT_DEPS_DIR}
                RESULT_VARIABLE prepared)
if(prepared)
  message(FATAL_ERROR "The sources of oscpack could not be prepared.")
endif()
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
             ${CMAKE_SOURCE_DIR}/cmake/prepare_oscpack.sh ${CMAKE_SOURCE_DIR}/cmake/oscpack.patch)

set(oscpackDir ${CORVALINT_DEPS_DIR}/oscpack)
add_library(oscpack STATIC
  ${oscpackDir}/osc/OscOutboundPacketStream.cpp
  ${oscpackDir}/osc/OscPrintReceivedElements.cpp
  ${oscpackDir}/osc/OscReceivedElements.cpp
  ${oscpackDir}/osc/OscTypes.cpp)
target_include_directories(oscpack SYSTEM PUBLIC ${oscpackDir})
target_compile_options(oscpack PRIVATE -w -fvisibility=hidden)
