# nodepatch_windows_resources(TARGET)
#
# Makes a program a Windows one: no console window, Qt's WinMain that calls main, and the
# file icon, version information and manifest. Does nothing for other systems. Call it from the
# directory that makes the target, after OUTPUT_NAME is set.
include(${CMAKE_CURRENT_LIST_DIR}/Identity.cmake)

function(nodepatch_windows_resources target)
    if(NOT WIN32)
        return()
    endif()
    set(resources ${PROJECT_SOURCE_DIR}/platform/windows)
    get_target_property(NODEPATCH_file ${target} OUTPUT_NAME)
    if(NOT NODEPATCH_file)
        set(NODEPATCH_file ${target})
    endif()
    configure_file(${resources}/NodePatch.rc.in ${PROJECT_BINARY_DIR}/NodePatch.rc @ONLY)
    set_property(SOURCE ${PROJECT_BINARY_DIR}/NodePatch.rc PROPERTY
        OBJECT_DEPENDS ${resources}/NodePatch.ico ${resources}/NodePatch.manifest)
    target_sources(${target} PRIVATE ${PROJECT_BINARY_DIR}/NodePatch.rc)
    set_target_properties(${target} PROPERTIES WIN32_EXECUTABLE ON)
    if(TARGET Qt5::WinMain)
        target_link_libraries(${target} PRIVATE Qt5::WinMain)
    endif()
    if(MSVC)
        # Its linker would else embed a manifest of its own beside ours.
        target_link_options(${target} PRIVATE /MANIFEST:NO)
    endif()
endfunction()
