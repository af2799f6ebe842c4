# Compiles a target of this project with the project's warnings, each an error.
function(corvalint_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
  if(CMAKE_CXX_COMPILER_ID STREQUAL Clang)
    target_compile_options(${target} PRIVATE -Wthread-safety)
  else()
    # g++ 12 finds an overlap in sums of strings where there is none.
    target_compile_options(${target} PRIVATE -Wno-restrict)
  endif()
endfunction()

# Everything in the tree is built with the same sanitizers, the libraries it links included.
set(CORVALINT_SANITIZE "" CACHE STRING "Argument of -fsanitize= for this tree")
if(CORVALINT_SANITIZE)
  add_compile_options(-fsanitize=${CORVALINT_SANITIZE} -fno-sanitize-recover=all
                      -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${CORVALINT_SANITIZE})
endif()

# The clock alignment must give the same integers on every target, so a multiplication and an
# addition are never fused.
add_compile_options(-ffp-contract=off)

if(WIN32)
  # The "A" functions are meant where no suffix is written: names from devices are ANSI bytes.
  add_compile_definitions(WIN32_LEAN_AND_MEAN NOMINMAX _WIN32_WINNT=0x0601)
  # The same bytes wherever the sources lie.
  add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}=.)
  # One file each, needing no runtime beside it; no time of day inside, so builds can be compared.
  add_link_options(-static -static-libgcc -static-libstdc++ -Wl,--no-insert-timestamp)
endif()
