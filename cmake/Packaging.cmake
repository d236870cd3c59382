# What `cmake --install` puts on a system, and the Debian package made of it
# (`cmake --build <dir> --target package`).
include(GNUInstallDirs)

set(PIXMORA_APP_ID org.pixmora.Pixmora)
set(data ${PROJECT_SOURCE_DIR}/data)
set(generated ${PROJECT_BINARY_DIR}/data)
set(app_icon ${PROJECT_SOURCE_DIR}/src/app/icons/pixmora.svg)

install(TARGETS pixmora RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(FILES ${data}/${PIXMORA_APP_ID}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
configure_file(${data}/${PIXMORA_APP_ID}.metainfo.xml ${generated}/${PIXMORA_APP_ID}.metainfo.xml @ONLY)
install(FILES ${generated}/${PIXMORA_APP_ID}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
install(FILES ${data}/pixmora.bash-completion DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME pixmora)
install(FILES ${app_icon} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps RENAME ${PIXMORA_APP_ID}.svg)

# Debian wants manual pages and changelogs compressed without a time stamp.
function(pixmora_gzip source output)
    configure_file(${source} ${generated}/plain/${output} @ONLY)
    add_custom_command(OUTPUT ${generated}/${output}.gz
        COMMAND gzip -9 -n -c ${generated}/plain/${output} > ${generated}/${output}.gz
        DEPENDS ${generated}/plain/${output} VERBATIM)
    list(APPEND PIXMORA_PACKAGE_FILES ${generated}/${output}.gz)
    set(PIXMORA_PACKAGE_FILES ${PIXMORA_PACKAGE_FILES} PARENT_SCOPE)
endfunction()
pixmora_gzip(${data}/pixmora.1 pixmora.1)
pixmora_gzip(${data}/changelog changelog)
install(FILES ${generated}/pixmora.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES ${generated}/changelog.gz ${data}/copyright DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/pixmora)

add_executable(render_icon ${data}/render_icon.cpp)
target_link_libraries(render_icon PRIVATE Qt6::Gui Qt6::Svg)
pixmora_target_options(render_icon)
foreach(pixels 16 22 24 32 48 64 128 256)
    set(png ${generated}/icons/${pixels}/${PIXMORA_APP_ID}.png)
    add_custom_command(OUTPUT ${png}
        COMMAND ${CMAKE_COMMAND} -E make_directory ${generated}/icons/${pixels}
        COMMAND render_icon ${app_icon} ${pixels} ${png}
        DEPENDS render_icon ${app_icon} VERBATIM)
    list(APPEND PIXMORA_PACKAGE_FILES ${png})
    install(FILES ${png} DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/${pixels}x${pixels}/apps)
endforeach()
add_custom_target(pixmora_package_files ALL DEPENDS ${PIXMORA_PACKAGE_FILES})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pixmora)
set(CPACK_PACKAGE_VENDOR "The Pixmora developers")
set(CPACK_PACKAGE_CONTACT "The Pixmora developers <developers@pixmora.org>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "screenshot utility in the system tray")
set(CPACK_PACKAGE_DESCRIPTION "Pixmora captures an area dragged out on a frozen image of every display,
a window picked by clicking it, every display, or a page scrolled through
and stitched into one tall image. Each capture becomes a PNG file, goes to
the clipboard, is kept in a private history of the last 60 captures and is
announced by a floating thumbnail that opens it for markup.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION graphics)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "xdg-utils")
set(CPACK_STRIP_FILES ON)
include(CPack)
