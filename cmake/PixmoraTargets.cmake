# Warnings and sanitizers apply to the project's own targets only.
function(pixmora_target_options target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor
        # GCC 12 reports std::optional<QString> members as maybe-uninitialized at -O2.
        -Wno-maybe-uninitialized)
    if(PIXMORA_WERROR)
        target_compile_options(${target} PRIVATE -Werror)
    endif()
    if(PIXMORA_SANITIZE)
        target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
        target_link_options(${target} PRIVATE -fsanitize=address,undefined)
    endif()
endfunction()

# Qt's headers dominate compile time on two cores.
function(pixmora_precompile_qt target)
    target_precompile_headers(${target} PRIVATE <QImage> <QObject> <QString> <QWidget> <QPainter>
                              <functional> <memory> <optional> <vector>)
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
    pixmora_precompile_qt(${name})
    target_precompile_headers(${name} PRIVATE <gtest/gtest.h>)
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS} GTest::gtest GTest::gmock Qt6::Widgets Qt6::Test)
    pixmora_target_options(${name})
    add_test(NAME ${name} COMMAND ${name})
    # The test process itself never needs a display; end-to-end tests hand
    # their own DISPLAY to what they start.
    set(env "QT_QPA_PLATFORM=offscreen")
    set_tests_properties(${name} PROPERTIES LABELS ${ARG_LABEL} TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${env}")
endfunction()
