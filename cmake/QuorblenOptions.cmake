# Compile and link options shared by every target of the project.

option(QUORBLEN_WERROR "Treat compiler warnings as errors" OFF)
set(QUORBLEN_SANITIZE "" CACHE STRING
    "Sanitizers to build with: empty, 'address,undefined' or 'thread'")

# Applies the project's language level, warnings, numerics and sanitizer options to `target`.
# -ffp-contract=off keeps a*b+c as two roundings: the solver's results are pinned to the bit.
function(quorblen_target_options target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
    target_compile_options(${target} PRIVATE -Wall -Wextra -ffp-contract=off)
    # GCC 12 reports false -Wrestrict overlaps inside std::string concatenation (its bug
    # 105329); the warning finds nothing in this code base that the sanitizers would not.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
    if(QUORBLEN_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(QUORBLEN_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=${QUORBLEN_SANITIZE}
                                                 -fno-omit-frame-pointer -fno-sanitize-recover=all)
        target_link_options(${target} PRIVATE -fsanitize=${QUORBLEN_SANITIZE})
    endif()
endfunction()
