# JURNfilter_hooked: the library's own sources once more, with the hook that chooses the clone of
# each kernel, for tests and benchmarks.
if(TARGET JURNfilter_hooked)
  return()
endif()
get_target_property(library_sources JURNfilter SOURCES)
get_target_property(library_includes JURNfilter INTERFACE_INCLUDE_DIRECTORIES)
if(CMAKE_CXX_FLAGS MATCHES "-fsanitize") # takes twice as long to compile: once has to do for all
  target_sources(JURNfilter PRIVATE ${PROJECT_SOURCE_DIR}/tests/clone_hook.cpp)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/tests/clone_hook.cpp TARGET_DIRECTORY JURNfilter
                              PROPERTIES INCLUDE_DIRECTORIES "${library_includes}")
  target_compile_definitions(JURNfilter PUBLIC JURN_CLONE_HOOK)
  add_library(JURNfilter_hooked ALIAS JURNfilter)
  return()
endif()
get_target_property(library_options JURNfilter COMPILE_OPTIONS)
if(NOT library_options)
  set(library_options "")
endif()
add_library(JURNfilter_hooked STATIC ${library_sources} ${CMAKE_CURRENT_LIST_DIR}/../tests/clone_hook.cpp)
target_include_directories(JURNfilter_hooked PUBLIC ${library_includes})
target_compile_options(JURNfilter_hooked PRIVATE ${library_options})
target_compile_definitions(JURNfilter_hooked PUBLIC JURN_CLONE_HOOK)
