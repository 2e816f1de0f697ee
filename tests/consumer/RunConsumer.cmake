# Installs the build tree into a fresh prefix, then configures, builds and runs the consumer
# project against it. Run with -P; takes BUILD_DIR, WORK_DIR, CONSUMER_DIR, LIBDIR, GENERATOR,
# CXX, BUILD_TYPE and SANITIZE (the sanitizers the project was built with, or empty).
function(run)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output
                    ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        string(JOIN " " command ${ARGN})
        message(FATAL_ERROR "${command} failed (${result}):\n${output}")
    endif()
endfunction()

# Sanitized libraries need the consumer compiled and linked with the same runtime.
set(flags "")
if(SANITIZE)
    set(flags "-fsanitize=${SANITIZE}")
endif()

file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
run("${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${prefix}")
run("${CMAKE_COMMAND}" -S "${CONSUMER_DIR}" -B "${WORK_DIR}/build" -G "${GENERATOR}"
    "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" "-DCMAKE_CXX_FLAGS=${flags}"
    "-DCMAKE_PREFIX_PATH=${prefix}")
run("${CMAKE_COMMAND}" --build "${WORK_DIR}/build")
run("${WORK_DIR}/build/consumer" "${prefix}/${LIBDIR}/quorblen/Quorblen.so")
file(REMOVE_RECURSE "${WORK_DIR}")
