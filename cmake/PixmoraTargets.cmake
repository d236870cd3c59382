# Warnings and sanitizers apply to the project's own targets only.
function(pixmora_target_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
        # GCC 12 reports std::optional<QString> members as maybe-uninitialized at -O2.
        -Wno-maybe-uninitialized
        # Some dependencies bring -pthread and others do not; the same flags
        # everywhere let all targets share one precompiled header, and a header
        # that stops fitting is reported instead of silently compiled anew.
        -pthread -Winvalid-pch)
    if(PIXMORA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(PIXMORA_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
endfunction()

# Qt's headers dominate compile time on two cores. They are precompiled once
# for all libraries and once for all tests (GCC takes a precompiled header only
# when the flags match, and they do within each kind), not once per target.
function(pixmora_shared_headers name)
    cmake_parse_arguments(ARG "" "" "HEADERS;LIBS" ${ARGN})
    # An empty source: the target exists only to compile the header.
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp "")
    add_library(${name} OBJECT ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    pixmora_target_options(${name})
    target_precompile_headers(${name} PRIVATE <QImage> <QObject> <QString> <QWidget> <QPainter>
                              <functional> <memory> <optional> <vector> ${ARG_HEADERS})
endfunction()

# A GoogleTest executable with a QApplication main, registered with CTest.
# OWN_MAIN: the sources bring their own main. LABEL: unit (offscreen, fake platform) or e2e (real Xvfb).
function(pixmora_test name)
    cmake_parse_arguments(ARG "OWN_MAIN" "LABEL;TIMEOUT" "SOURCES;LIBS" ${ARGN})
    if(NOT ARG_LABEL)
        set(ARG_LABEL unit)
    endif()
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    if(NOT ARG_OWN_MAIN)
        list(APPEND ARG_SOURCES ${PROJECT_SOURCE_DIR}/tests/support/TestMain.cpp)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_precompile_headers(${name} REUSE_FROM pixmora_test_headers)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock Qt6::Widgets Qt6::Test)
    pixmora_target_options(${name})
    add_test(NAME ${name} COMMAND ${name})
    # The test process itself never needs a display; end-to-end tests hand
    # their own DISPLAY to what they start.
    set(env "QT_QPA_PLATFORM=offscreen")
    set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${env}")
endfunction()

# One static library per folder of src/, named pixmora_<folder> ("/" becomes "_").
# DEPENDS lists the folders it may use: it links their libraries, and the
# layering check fails the build when a file includes any other folder.
# GUI_ONLY: the folder uses Qt Gui but not Widgets, so the shared headers do not fit it.
function(pixmora_library folder)
    cmake_parse_arguments(ARG "GUI_ONLY" "" "DEPENDS;LIBS" ${ARGN})
    string(REPLACE "/" "_" name "pixmora_${folder}")
    file(GLOB sources CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/src/${folder}/*.cpp
         ${PROJECT_SOURCE_DIR}/src/${folder}/*.h ${PROJECT_SOURCE_DIR}/src/${folder}/*.qrc)
    list(FILTER sources EXCLUDE REGEX "/main\\.cpp$")
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    foreach(dependency IN LISTS ARG_DEPENDS)
        string(REPLACE "/" "_" dependencyName "pixmora_${dependency}")
        target_link_libraries(${name} PUBLIC ${dependencyName})
    endforeach()
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
    pixmora_target_options(${name})
    if(NOT ARG_GUI_ONLY)
        target_precompile_headers(${name} REUSE_FROM pixmora_library_headers)
    endif()
    add_dependencies(${name} pixmora_layering)
    set_property(GLOBAL APPEND PROPERTY PIXMORA_FOLDERS ${folder})
    set_property(GLOBAL PROPERTY PIXMORA_DEPENDS_${name} "${ARG_DEPENDS}")
endfunction()

# Runs on every build, before any library compiles: cheap, and an include
# added to an existing file is caught without reconfiguring.
function(pixmora_layering_check)
    get_property(folders GLOBAL PROPERTY PIXMORA_FOLDERS)
    set(rules "set(PIXMORA_FOLDERS \"${folders}\")\n")
    foreach(folder IN LISTS folders)
        string(REPLACE "/" "_" name "pixmora_${folder}")
        get_property(depends GLOBAL PROPERTY PIXMORA_DEPENDS_${name})
        string(APPEND rules "set(PIXMORA_DEPENDS_${name} \"${depends}\")\n")
    endforeach()
    file(WRITE ${PROJECT_BINARY_DIR}/layering-rules.cmake "${rules}")
    add_custom_target(pixmora_layering
        COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${PROJECT_SOURCE_DIR}/src
                -DRULES=${PROJECT_BINARY_DIR}/layering-rules.cmake -P ${PROJECT_SOURCE_DIR}/cmake/CheckLayering.cmake
        COMMENT "Checking that every folder includes only what it may use")
endfunction()
