# The flags that Debian builds its packages with, all of its hardening included. For all targets: the
# package's objects are compiled before Packaging.cmake is read.
foreach(kind CXXFLAGS CPPFLAGS LDFLAGS)
    execute_process(
        COMMAND ${CMAKE_COMMAND} -E env DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get ${kind}
        WORKING_DIRECTORY ${PROJECT_SOURCE_DIR}
        OUTPUT_VARIABLE flags OUTPUT_STRIP_TRAILING_WHITESPACE
        RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "dpkg-buildflags (package dpkg-dev) does not run: ${result}")
    endif()
    separate_arguments(flags UNIX_COMMAND "${flags}")
    if(kind STREQUAL LDFLAGS)
        add_link_options(${flags})
    else()
        add_compile_options(${flags})
    endif()
endforeach()
