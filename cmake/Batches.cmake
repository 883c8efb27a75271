# The tools' libraries are headers of many thousand lines, which take far longer than the sources that include them: read
# once for a batch of sources, a tool builds in a third of the time. Never for the driver library, whose files stay apart.
option(TALVEX_BATCHES "Compile the tools' sources in batches" ON)

function(talvex_compile_in_batches target)
  set_target_properties(${target} PROPERTIES UNITY_BUILD ${TALVEX_BATCHES} UNITY_BUILD_BATCH_SIZE 8)
endfunction()
