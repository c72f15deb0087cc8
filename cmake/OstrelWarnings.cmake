# Common settings for every target of the project.

# ostrel_library_settings(target): C++11, warnings on, errors in CI.
function(ostrel_library_settings target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 11 CXX_STANDARD_REQUIRED ON
                                             CXX_EXTENSIONS OFF)
  ostrel_warnings(${target})
endfunction()

# ostrel_tool_settings(target): tools, tests and benchmarks may use C++17.
function(ostrel_tool_settings target)
  set_target_properties(${target} PROPERTIES CXX_STANDARD 17 CXX_STANDARD_REQUIRED ON
                                             CXX_EXTENSIONS OFF)
  ostrel_warnings(${target})
endfunction()

function(ostrel_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra)
  if(OSTREL_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
