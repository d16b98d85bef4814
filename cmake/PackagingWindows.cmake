# What is installed on Windows: one directory with the program, every library that it needs, and the
# licences. CPack makes a zip file and an installer of it. Included when all targets are known.
if(NOT TARGET nodepatch OR NOT MINGW)
    return()
endif()

set(NODEPATCH_LICENCES "" CACHE PATH "Directory with the licences of the libraries in a Windows package")
include(${CMAKE_CURRENT_LIST_DIR}/Identity.cmake)
set(from ${PROJECT_SOURCE_DIR}/platform/windows)

# No import libraries: nobody links with what is installed.
install(TARGETS nodepatch VxUtil RUNTIME DESTINATION .)
install(FILES
    $<TARGET_FILE:qmdnsengine>
    $<TARGET_FILE:Qt5::Core>
    $<TARGET_FILE:Qt5::Gui>
    $<TARGET_FILE:Qt5::Network>
    $<TARGET_FILE:Qt5::Widgets>
    DESTINATION .)
install(FILES $<TARGET_FILE:Qt5::QWindowsIntegrationPlugin> DESTINATION platforms)

# The compiler's own libraries come with debugging symbols: most of their size.
foreach(library libgcc_s_seh-1.dll libstdc++-6.dll libwinpthread-1.dll)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${library}
        OUTPUT_VARIABLE path OUTPUT_STRIP_TRAILING_WHITESPACE)
    if(NOT EXISTS ${path})
        message(FATAL_ERROR "The compiler has no ${library}")
    endif()
    set(stripped ${PROJECT_BINARY_DIR}/runtime/${library})
    add_custom_command(OUTPUT ${stripped}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/runtime
        COMMAND ${CMAKE_STRIP} -o ${stripped} ${path}
        DEPENDS ${path} VERBATIM)
    list(APPEND runtime ${stripped})
endforeach()
add_custom_target(nodepatch_runtime ALL DEPENDS ${runtime})
install(FILES ${runtime} DESTINATION .)

install(FILES ${from}/licences.txt DESTINATION licences)
if(NODEPATCH_LICENCES)
    install(DIRECTORY ${NODEPATCH_LICENCES}/ DESTINATION licences)
endif()
if(NODEPATCH_MDNS STREQUAL "fetch")
    FetchContent_GetProperties(qmdnsengine SOURCE_DIR engineSources)
    install(FILES ${engineSources}/LICENSE.txt DESTINATION licences RENAME QMdnsEngine.txt)
endif()

set(CPACK_GENERATOR "ZIP;NSIS")
set(CPACK_PACKAGE_NAME ${PROJECT_NAME})
set(CPACK_PACKAGE_VENDOR ${NODEPATCH_organisation})
set(CPACK_PACKAGE_HOMEPAGE_URL https://${NODEPATCH_webDomain}/nodepatch)
set(CPACK_PACKAGE_INSTALL_DIRECTORY ${PROJECT_NAME})
set(CPACK_PACKAGE_FILE_NAME velmora-nodepatch-${PROJECT_VERSION}-windows-x64)
set(CPACK_NSIS_MUI_ICON ${from}/NodePatch.ico)
# An installer script of this project's own: CPack's installs for all users and asks for
# administrator's rights.
set(CPACK_MODULE_PATH ${from})
set(CPACK_VERBATIM_VARIABLES ON)
include(CPack)
