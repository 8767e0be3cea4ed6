# The Windows home: the DLL as it is shipped, and the programs that prove it under Wine.
enable_language(RC)

# Nothing of the compiler lies beside the DLL on the user's machine.
set(STATIC_RUNTIME -static -static-libgcc -static-libstdc++)

# Guards before return addresses, and copies checked where the room is known; stack_guard.cpp is
# what the checks call.
add_library(KSFAXUI SHARED ${DRIVER_SOURCES} platform/windows/stack_guard.cpp
  resources/ksfaxui.rc resources/ksfaxui.def)
target_compile_options(KSFAXUI PRIVATE
  $<$<COMPILE_LANGUAGE:CXX>:${DRIVER_OPTIONS} -ffunction-sections -fdata-sections
    -fstack-protector-strong -D_FORTIFY_SOURCE=2>)
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
  tests/windows/*_test.cpp tests/platform/*_contract_test.cpp)
list(REMOVE_ITEM WINDOWS_TEST_SOURCES ${CMAKE_SOURCE_DIR}/tests/windows/host_answers_test.cpp)
list(APPEND WINDOWS_TEST_SOURCES tests/windows/installed_printer.cpp
  tests/windows/property_sheet_host.cpp
  tests/windows/driver_answers.cpp tests/windows/fax_job_answers.cpp)
add_executable(ksfax_windows_tests ${WINDOWS_TEST_SOURCES})
target_compile_options(ksfax_windows_tests PRIVATE -O0)
target_compile_definitions(ksfax_windows_tests PRIVATE
  UNICODE _UNICODE SOURCE_FOLDER="${CMAKE_SOURCE_DIR}")
target_link_options(ksfax_windows_tests PRIVATE ${STATIC_RUNTIME})
target_link_libraries(ksfax_windows_tests PRIVATE windows_gtest winspool ntdll setupapi comctl32)
add_dependencies(ksfax_windows_tests KSFAXUI)

# The companion module that the driver finds in a folder of its own.
add_library(companion SHARED tests/windows/companion.cpp)
target_compile_options(companion PRIVATE -O0)
target_compile_definitions(companion PRIVATE UNICODE _UNICODE)
target_link_options(companion PRIVATE ${STATIC_RUNTIME} -s)
set_target_properties(companion PROPERTIES PREFIX "" OUTPUT_NAME KSFAXDLG SUFFIX ".dll"
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/companion
  ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/companion)
add_dependencies(ksfax_windows_tests companion)

# The example of a resource module in another language, as its author builds it.
add_library(german SHARED examples/german.rc)
set_target_properties(german PROPERTIES LINKER_LANGUAGE C PREFIX "" OUTPUT_NAME KSFAXRES SUFFIX ".DLL"
  RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/german ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/german)
target_link_options(german PRIVATE -nostdlib -Wl,--entry=0)
add_dependencies(ksfax_windows_tests german)
