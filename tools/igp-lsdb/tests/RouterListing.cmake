# `igp-lsdb summary --level N` on a capture lists the LSP IDs, sequence numbers and checksums a
# router listed in `show isis database detail` at the end of that capture.
#   -DTOOL=path -DCAPTURE=file -DLEVEL=n -DLISTING=file -DWORKDIR=dir

execute_process(COMMAND "${TOOL}" summary --level ${LEVEL} "${CAPTURE}" WORKING_DIRECTORY "${WORKDIR}"
                OUTPUT_VARIABLE summary RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "igp-lsdb summary exited with ${rc}")
endif()

# "r2.00-00  [*]  818  0x00000007  0x73ee  1118  1/0/0" -> "r2.00-00 0x00000007 0x73ee"
function(lsp_rows text out)
    string(REPLACE "\n" ";" lines "${text}")
    set(rows "")
    foreach(line IN LISTS lines)
        if(line MATCHES "^([^ ]+\\.[0-9a-f][0-9a-f]-[0-9a-f][0-9a-f]) .* (0x[0-9a-f]+) +(0x[0-9a-f]+) ")
            list(APPEND rows "${CMAKE_MATCH_1} ${CMAKE_MATCH_2} ${CMAKE_MATCH_3}")
        endif()
    endforeach()
    list(SORT rows)
    string(REPLACE ";" "\n  " rows "${rows}")
    set(${out} "${rows}" PARENT_SCOPE)
endfunction()

file(READ "${LISTING}" listing)
lsp_rows("${summary}" ours)
lsp_rows("${listing}" theirs)
if(NOT theirs OR NOT ours STREQUAL theirs)
    message(FATAL_ERROR "level-${LEVEL} LSPs differ from ${LISTING}:\nigp-lsdb:\n  ${ours}\nrouter:\n  ${theirs}")
endif()
