# Runs igp-lsdb twice, under two hash seeds, comparing each run with the same expected files: the tool
# sorts its output, so the library's random seed must not show. -DTOOL -DARGS=a|b -DWORKDIR -DEXPECTED
# -DNAME -DACTUAL; -DOUT, -DERR: files in EXPECTED (OUT defaults to NAME.out; without ERR stderr must be
# empty); -DEXPECT_RC (0); -DJSON=doc|lines -DSCHEMA_CHECK=python|script -DSCHEMA: validate stdout;
# -DSEED: the first run's IGPCOMMON_HASH_SEED (else unset). IGP_LSDB_BLESS=1 in the environment: the
# first run writes the expected files (review them with git diff).

string(REPLACE "|" ";" ARGS "${ARGS}")
string(REPLACE "|" ";" SCHEMA_CHECK "${SCHEMA_CHECK}")
set(env_first "--unset=IGPCOMMON_HASH_SEED")
if(NOT OUT)
    set(OUT "${NAME}.out")
endif()
if(NOT EXPECT_RC)
    set(EXPECT_RC 0)
endif()
if(NOT SEED STREQUAL "")
    set(env_first "IGPCOMMON_HASH_SEED=${SEED}")
endif()
set(env_second "IGPCOMMON_HASH_SEED=0x9e3779b9")

function(compare actual expected what)
    if(run STREQUAL "first" AND DEFINED ENV{IGP_LSDB_BLESS})
        file(COPY_FILE "${actual}" "${expected}")
        return()
    endif()
    execute_process(COMMAND "${CMAKE_COMMAND}" -E compare_files "${actual}" "${expected}" RESULT_VARIABLE differ)
    if(differ)
        execute_process(COMMAND diff -u "${expected}" "${actual}" OUTPUT_VARIABLE d)
        string(SUBSTRING "${d}" 0 6000 d)
        set(failed "${failed}${what} differs from ${expected}:\n${d}\n" PARENT_SCOPE)
    endif()
endfunction()

set(failed "")
foreach(run first second)
    set(actual "${ACTUAL}.${run}")
    execute_process(
        COMMAND "${CMAKE_COMMAND}" -E env ${env_${run}} "${TOOL}" ${ARGS}
        WORKING_DIRECTORY "${WORKDIR}" OUTPUT_FILE "${actual}.out" ERROR_FILE "${actual}.err" RESULT_VARIABLE rc)
    set(what "${run} run (${env_${run}}):")
    file(READ "${actual}.err" err)
    if(NOT rc STREQUAL "${EXPECT_RC}")
        string(APPEND failed "${what} exit status ${rc}, expected ${EXPECT_RC}\n${err}\n")
    endif()
    if(JSON)
        execute_process(
            COMMAND ${SCHEMA_CHECK} --${JSON} "${SCHEMA}" "${actual}.out"
            OUTPUT_VARIABLE check_out ERROR_VARIABLE check_err RESULT_VARIABLE check_rc)
        if(NOT check_rc EQUAL 0)
            string(APPEND failed "${what} the output does not validate against ${SCHEMA}:\n${check_out}${check_err}\n")
        endif()
    endif()
    compare("${actual}.out" "${EXPECTED}/${OUT}" "${what} standard output")
    if(ERR)
        compare("${actual}.err" "${EXPECTED}/${ERR}" "${what} standard error")
    elseif(NOT err STREQUAL "")
        string(APPEND failed "${what} unexpected standard error:\n${err}\n")
    endif()
endforeach()

if(NOT failed STREQUAL "")
    message(FATAL_ERROR "igp-lsdb ${ARGS}\n${failed}")
endif()
