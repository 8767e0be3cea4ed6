# The Linux home: the driver on the embedded machine, ksfax, tests, benchmarks, fuzz targets.

# GCC 12 sees overlapping copies in std::string's operator+ where there are none (GCC bug 105651).
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  add_compile_options(-Wno-restrict)
endif()

# One resource script for both homes: windres makes the .res file that the machine reads.
find_program(WINDRES NAMES x86_64-w64-mingw32-windres REQUIRED)
file(GLOB RESOURCE_FILES CONFIGURE_DEPENDS resources/*)
set(RESOURCE_FILE ${CMAKE_BINARY_DIR}/ksfaxui.res)
add_custom_command(
  OUTPUT ${RESOURCE_FILE}
  COMMAND ${WINDRES} -I ${CMAKE_SOURCE_DIR} -O res -i ${CMAKE_SOURCE_DIR}/resources/ksfaxui.rc -o ${RESOURCE_FILE}
  DEPENDS ${RESOURCE_FILES})
set_source_files_properties(platform/embedded/own_resources.S PROPERTIES
  OBJECT_DEPENDS ${RESOURCE_FILE}
  COMPILE_OPTIONS "-DRESOURCE_FILE=\"${RESOURCE_FILE}\"")

# The face that the machine writes text in; the library carries it, so that pictures come out
# alike on every host.
find_package(Freetype REQUIRED)
find_file(FONT_FILE LiberationSans-Regular.ttf REQUIRED
  PATH_SUFFIXES fonts/truetype/liberation fonts/truetype/liberation2 fonts/liberation-sans fonts/liberation
  PATHS /usr/share /usr/local/share)
set_source_files_properties(platform/embedded/font_data.S PROPERTIES
  OBJECT_DEPENDS ${FONT_FILE}
  COMPILE_OPTIONS "-DFONT_FILE=\"${FONT_FILE}\"")

file(GLOB EMBEDDED_SOURCES CONFIGURE_DEPENDS platform/embedded/*.cpp)
add_library(embedded STATIC ${EMBEDDED_SOURCES}
  platform/embedded/own_resources.S platform/embedded/font_data.S)
target_link_libraries(embedded PRIVATE Freetype::Freetype)

add_library(driver STATIC ${DRIVER_SOURCES})
target_compile_options(driver PRIVATE ${DRIVER_OPTIONS})
target_link_libraries(driver PUBLIC embedded)

find_package(PNG REQUIRED)
file(GLOB TOOL_SOURCES CONFIGURE_DEPENDS tool/*.cpp)
list(REMOVE_ITEM TOOL_SOURCES ${CMAKE_SOURCE_DIR}/tool/main.cpp)
add_library(tool STATIC ${TOOL_SOURCES})
target_link_libraries(tool PUBLIC driver PNG::PNG Freetype::Freetype)
target_compile_definitions(tool PUBLIC KSFAX_VERSION="${PROJECT_VERSION}")
add_executable(ksfax tool/main.cpp)
target_link_libraries(ksfax PRIVATE tool)

# What a package of the program holds.
set(CMAKE_INSTALL_DOCDIR share/doc/ksfax CACHE PATH "Documents")
include(GNUInstallDirs)
install(TARGETS ksfax)
install(FILES docs/ksfax.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
install(FILES docs/ksfax.bash DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME ksfax)
install(FILES LICENSE README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
install(DIRECTORY docs DESTINATION ${CMAKE_INSTALL_DOCDIR}
  FILES_MATCHING PATTERN "*.md" PATTERN "*.png")
install(FILES faxjob/companion.h DESTINATION ${CMAKE_INSTALL_DOCDIR}/docs)
install(DIRECTORY examples DESTINATION ${CMAKE_INSTALL_DOCDIR} PATTERN "*.PDC" EXCLUDE)

if(KSFAX_TESTS)
  enable_testing()
  find_package(GTest REQUIRED)
  file(GLOB_RECURSE TEST_SOURCES CONFIGURE_DEPENDS tests/*.cpp)
  list(FILTER TEST_SOURCES EXCLUDE REGEX "/tests/windows/")
  # The driver answers the same questions in both homes.
  list(APPEND TEST_SOURCES tests/windows/host_answers_test.cpp tests/windows/driver_answers.cpp
    tests/windows/fax_job_answers.cpp tests/windows/companion.cpp)
  add_executable(ksfax_tests ${TEST_SOURCES})
  target_link_libraries(ksfax_tests PRIVATE tool GTest::gtest_main)
  target_compile_definitions(ksfax_tests PRIVATE
    SOURCE_FOLDER="${CMAKE_SOURCE_DIR}" KSFAX_PROGRAM="$<TARGET_FILE:ksfax>")
  add_dependencies(ksfax_tests ksfax)

  # The tests of what several threads do at once, apart, for ThreadSanitizer: those in files with a
  # suite whose name says so, and what they need.
  foreach(source ${TEST_SOURCES})
    file(STRINGS ${source} found REGEX "^TEST.*Threads")
    if(found)
      list(APPEND THREAD_TEST_SOURCES ${source})
    endif()
  endforeach()
  add_executable(thread_tests EXCLUDE_FROM_ALL ${THREAD_TEST_SOURCES} tool/loaded_driver.cpp)
  target_link_libraries(thread_tests PRIVATE driver GTest::gtest_main)
  target_compile_definitions(thread_tests PRIVATE SOURCE_FOLDER="${CMAKE_SOURCE_DIR}")
endif()

if(KSFAX_BENCH)
  find_package(benchmark REQUIRED)
  file(GLOB BENCH_SOURCES CONFIGURE_DEPENDS bench/*.cpp)
  add_executable(ksfax_bench ${BENCH_SOURCES})
  target_link_libraries(ksfax_bench PRIVATE tool benchmark::benchmark benchmark::benchmark_main cups)
  target_compile_definitions(ksfax_bench PRIVATE SOURCE_FOLDER="${CMAKE_SOURCE_DIR}")
endif()

# Each fuzz/NAME.cpp is one libFuzzer target with its corpus in fuzz/corpus/NAME. The test build
# runs the corpora alone.
file(GLOB FUZZ_SOURCES CONFIGURE_DEPENDS fuzz/*.cpp)
if(KSFAX_TESTS)
  foreach(source ${FUZZ_SOURCES})
    get_filename_component(name ${source} NAME_WE)
    add_executable(replay_${name} ${source} fuzz/replay/main.cpp)
    target_link_libraries(replay_${name} PRIVATE driver)
  endforeach()

  # Makes the seeds of the ppd and cache targets anew.
  add_executable(make_seeds fuzz/seeds/main.cpp)
  target_link_libraries(make_seeds PRIVATE driver)
endif()

if(KSFAX_FUZZ)
  foreach(source ${FUZZ_SOURCES})
    get_filename_component(name ${source} NAME_WE)
    add_executable(fuzz_${name} ${source})
    target_link_libraries(fuzz_${name} PRIVATE driver)
    target_compile_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
    target_link_options(fuzz_${name} PRIVATE -fsanitize=fuzzer)
  endforeach()
  target_compile_options(driver PRIVATE -fsanitize=fuzzer-no-link)
endif()
