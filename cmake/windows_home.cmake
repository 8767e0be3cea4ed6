# The Windows home: the DLL as it is shipped, and the programs that prove it under Wine.
enable_language(RC)

# Nothing of the compiler lies beside the DLL on the user's machine.
set(STATIC_RUNTIME -static -static-libgcc -static-libstdc++)

add_library(KSFAXUI SHARED ${DRIVER_SOURCES} resources/ksfaxui.rc resources/ksfaxui.def)
target_compile_options(KSFAXUI PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:${DRIVER_OPTIONS} -ffunction-sections -fdata-sections>)
target_compile_definitions(KSFAXUI PRIVATE UNICODE _UNICODE)
# --exclude-all-symbols: what the .def file names and nothing else.
# --no-insert-timestamp: the same sources give the same bytes.
target_link_options(KSFAXUI PRIVATE ${STATIC_RUNTIME} -s
  -Wl,--no-insert-timestamp,--gc-sections,--exclude-all-symbols,--dynamicbase,--high-entropy-va,--nxcompat)
target_link_libraries(KSFAXUI PRIVATE winspool ntdll)
set_target_properties(KSFAXUI PROPERTIES PREFIX "" SUFFIX ".DLL")
set_source_files_properties(resources/ksfaxui.rc PROPERTIES
  COMPILE_OPTIONS "-I${CMAKE_SOURCE_DIR}")

# The texts of the package, with the line ends of Windows.
set(DATE "01/01/2026" CACHE STRING "Date of the driver, month/day/year")
set(VERSION ${PROJECT_VERSION})
foreach(text packaging/KSFAX.INF packaging/README.txt LICENSE)
  get_filename_component(name ${text} NAME)
  configure_file(${text} ${name} @ONLY NEWLINE_STYLE WIN32)
endforeach()

# ./dev windows needs no test library, so the tests are left out where it is not installed.
find_path(GOOGLETEST_SOURCE src/gtest-all.cc
  PATHS /usr/src/googletest/googletest NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT KSFAX_TESTS OR NOT GOOGLETEST_SOURCE)
  message(STATUS "The Windows tests are not built")
  return()
endif()

# Debian packages GoogleTest for the host only; its sources are built here.
add_library(windows_gtest STATIC
  ${GOOGLETEST_SOURCE}/src/gtest-all.cc ${GOOGLETEST_SOURCE}/src/gtest_main.cc)
target_include_directories(windows_gtest SYSTEM
  PUBLIC ${GOOGLETEST_SOURCE}/include PRIVATE ${GOOGLETEST_SOURCE})
target_compile_options(windows_gtest PRIVATE -O0 -w)

# The contract tests call the platform alone: here they hold Windows to what they demand of the
# embedded machine in the other home.
file(GLOB WINDOWS_TEST_SOURCES CONFIGURE_DEPENDS
  tests/windows/*_test.cpp tests/platform/*_contract_test.cpp
  tests/windows/installed_printer.cpp tests/windows/driver_answers.cpp ui/page_drawing.cpp)
add_executable(ksfax_windows_tests ${WINDOWS_TEST_SOURCES})
target_compile_options(ksfax_windows_tests PRIVATE -O1)
target_compile_definitions(ksfax_windows_tests PRIVATE UNICODE _UNICODE)
target_link_options(ksfax_windows_tests PRIVATE ${STATIC_RUNTIME})
target_link_libraries(ksfax_windows_tests PRIVATE windows_gtest winspool gdiplus ntdll setupapi)
add_dependencies(ksfax_windows_tests KSFAXUI)

# Companion modules for the tests, all of the one name, so each in its own folder.
function(add_companion folder)
  add_library(${folder} SHARED tests/windows/companion.cpp ${ARGN})
  target_compile_definitions(${folder} PRIVATE UNICODE _UNICODE)
  target_link_options(${folder} PRIVATE ${STATIC_RUNTIME} -s)
  set_target_properties(${folder} PROPERTIES
    PREFIX "" OUTPUT_NAME KSFAXDLG SUFFIX ".DLL"
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${folder}
    ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${folder})
  add_dependencies(ksfax_windows_tests ${folder})
endfunction()
add_companion(companion tests/windows/companion_dial.cpp tests/windows/companion_cover.cpp)
add_companion(companion_without_dialdlg tests/windows/companion_cover.cpp)
add_companion(companion_without_makebmp tests/windows/companion_dial.cpp)

add_library(sheet_host SHARED tests/windows/property_sheet_host.cpp)
target_compile_definitions(sheet_host PRIVATE UNICODE _UNICODE)
target_link_options(sheet_host PRIVATE ${STATIC_RUNTIME} -s)
target_link_libraries(sheet_host PRIVATE comctl32)
set_target_properties(sheet_host PROPERTIES
  PREFIX "" OUTPUT_NAME compstui SUFFIX ".dll"
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/sheet_host
  ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/sheet_host)
add_dependencies(ksfax_windows_tests sheet_host)
