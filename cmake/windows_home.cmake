# The Windows home: the DLL as it is shipped, and the programs that prove it under Wine.
enable_language(RC)

set(SHIPPED_LINK_OPTIONS
  -static -static-libgcc -static-libstdc++
  -Wl,--dynamicbase,--high-entropy-va,--nxcompat,--no-seh)

add_library(KSFAXUI SHARED ${DRIVER_SOURCES} resources/ksfaxui.rc resources/ksfaxui.def)
target_compile_options(KSFAXUI PRIVATE $<$<COMPILE_LANGUAGE:CXX>:${DRIVER_OPTIONS}>)
target_compile_definitions(KSFAXUI PRIVATE UNICODE _UNICODE)
target_link_options(KSFAXUI PRIVATE ${SHIPPED_LINK_OPTIONS})
target_link_libraries(KSFAXUI PRIVATE winspool)
set_target_properties(KSFAXUI PROPERTIES PREFIX "" SUFFIX ".DLL")
set_source_files_properties(resources/ksfaxui.rc PROPERTIES
  COMPILE_OPTIONS "-I${CMAKE_SOURCE_DIR}")
