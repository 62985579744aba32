# Helpers the subsystem folders use to declare their sources and tests.

# vw_core_sources(<folder> <file>...): toolkit-free classes of one subsystem, built as the
# static library vw_<folder>, which links the layer below it (see VW_FOLDERS).
function(vw_core_sources folder)
    if(NOT TARGET vw_${folder})
        add_library(vw_${folder} STATIC)
        target_include_directories(vw_${folder} PUBLIC ${PROJECT_SOURCE_DIR})
        target_link_libraries(vw_${folder} PUBLIC Threads::Threads SQLite::SQLite3)
    endif()
    target_sources(vw_${folder} PRIVATE ${ARGN})
endfunction()

# vw_gui_sources(<file>...): windows, views and dialogs (Qt); ignored without the interface.
function(vw_gui_sources)
    if(VW_GUI)
        target_sources(vwgui PRIVATE ${ARGN})
    endif()
endfunction()

# vw_core_test(<name> SOURCES <file>... [LIBS <target>...]): a GoogleTest program of core tests.
# LIBS names the subsystem object libraries it needs (default: all of vwcore), so a test of one
# subsystem builds while another subsystem is being changed.
function(vw_core_test name)
    cmake_parse_arguments(T "" "" "SOURCES;LIBS" ${ARGN})
    if(NOT T_LIBS)
        set(T_LIBS vwcore)
    endif()
    add_executable(${name} ${T_SOURCES})
    target_link_libraries(${name} PRIVATE ${T_LIBS} vwtestsupport GTest::gmock)
    # Golden files and test tables.
    target_compile_definitions(${name} PRIVATE VW_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data")
    gtest_discover_tests(${name} PROPERTIES LABELS core DISCOVERY_TIMEOUT 60)
endfunction()

# vw_gui_test(<name> SOURCES <file>... [XVFB]): a Qt Test program, on the offscreen platform,
# or with XVFB on a real X server of its own (for screenshots).
function(vw_gui_test name)
    cmake_parse_arguments(T "XVFB" "" "SOURCES" ${ARGN})
    if(NOT VW_GUI)
        return()
    endif()
    add_executable(${name} ${T_SOURCES})
    set_target_properties(${name} PROPERTIES AUTOMOC ON)
    target_link_libraries(${name} PRIVATE vwgui vwcore vwtesthome vwtestalerts Qt6::Test)
    if(T_XVFB)
        find_program(XVFB_RUN xvfb-run REQUIRED)
        add_test(NAME ${name} COMMAND ${XVFB_RUN} -a -s "-screen 0 1280x1024x24"
                 $<TARGET_FILE:${name}>)
        set_tests_properties(${name} PROPERTIES LABELS gui ENVIRONMENT "QT_QPA_PLATFORM=xcb")
    else()
        add_test(NAME ${name} COMMAND ${name})
        set_tests_properties(${name} PROPERTIES LABELS gui ENVIRONMENT "QT_QPA_PLATFORM=offscreen")
    endif()
endfunction()
