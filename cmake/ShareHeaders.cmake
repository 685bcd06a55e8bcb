# jurn_share_headers(target): compiles some sources at a time, for targets whose headers take the compiler
# longer than what includes them. CMAKE_UNITY_BUILD=OFF keeps every source alone.
function(jurn_share_headers target)
  if(NOT DEFINED CMAKE_UNITY_BUILD)
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 8)
  endif()
endfunction()
