# cmake -DPYTHON=... -DSOURCE=python-folder -DWORK=folder -P BuildPythonPackage.cmake
#
# Builds the Python package's wheel with setuptools' build backend, called directly so that
# neither pip nor a package index is needed, and unpacks it into WORK/root as an installer would
# into dist-packages. The build runs on a copy: setuptools writes build/ and *.egg-info/ beside
# pyproject.toml. The wheel's RECORD goes, so that pip never removes files that dpkg owns.
file(REMOVE_RECURSE ${WORK})
file(COPY ${SOURCE}/pyproject.toml ${SOURCE}/remotectrl DESTINATION ${WORK}/source
     PATTERN __pycache__ EXCLUDE)
execute_process(
    COMMAND ${PYTHON} -c "import setuptools.build_meta as backend; backend.build_wheel('${WORK}/wheel')"
    WORKING_DIRECTORY ${WORK}/source
    RESULT_VARIABLE result
    OUTPUT_VARIABLE log
    ERROR_VARIABLE log)
# setuptools talks a lot even when all is well: its output is shown only when the build fails.
if(NOT result EQUAL 0)
    message(FATAL_ERROR "Building the Python package's wheel failed (${result}):\n${log}")
endif()
file(GLOB wheel ${WORK}/wheel/*.whl)
file(ARCHIVE_EXTRACT INPUT ${wheel} DESTINATION ${WORK}/root)
file(GLOB record ${WORK}/root/*.dist-info/RECORD)
file(REMOVE ${record})
file(TOUCH ${WORK}/stamp)
