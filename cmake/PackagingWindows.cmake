# What is installed on Windows: one directory with the program, every library that it needs, the user
# guide and the licences. CPack makes a zip file and an installer of it. Included when all targets are known.
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

# Texts with the line ends of Windows.
function(install_text source destination name)
    set(made ${PROJECT_BINARY_DIR}/package-files/${name})
    configure_file(${source} ${made} @ONLY NEWLINE_STYLE CRLF)
    install(FILES ${made} DESTINATION ${destination})
endfunction()
install_text(${from}/licences.txt licences licences.txt)
if(NODEPATCH_LICENCES)
    file(GLOB licences CONFIGURE_DEPENDS ${NODEPATCH_LICENCES}/*.txt)
    foreach(licence ${licences})
        get_filename_component(name ${licence} NAME)
        install_text(${licence} licences ${name})
    endforeach()
endif()
if(NODEPATCH_MDNS STREQUAL "fetch")
    FetchContent_GetProperties(qmdnsengine SOURCE_DIR engineSources)
    install_text(${engineSources}/LICENSE.txt licences QMdnsEngine.txt)
endif()

# The user guide becomes HTML: Windows opens that in a browser, with pictures, tables and links, but knows
# no Markdown. Python-Markdown, because its headings are targets of links.
find_program(MARKDOWN_PY markdown_py)
if(NOT MARKDOWN_PY)
    message(FATAL_ERROR "The user guide needs markdown_py (package python3-markdown)")
endif()
set(guideSource ${PROJECT_SOURCE_DIR}/docs/user-guide.md)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${guideSource})
execute_process(COMMAND ${MARKDOWN_PY} -x tables -x toc -x fenced_code ${guideSource}
    OUTPUT_VARIABLE guide RESULT_VARIABLE result)
if(NOT result EQUAL 0)
    message(FATAL_ERROR "${MARKDOWN_PY} does not run: ${result}")
endif()
string(REPLACE "\n" "\r\n" guide "${guide}") # NEWLINE_STYLE ends the template's lines only
install_text(${from}/user-guide.html.in . user-guide.html)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs/images DESTINATION .)

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
