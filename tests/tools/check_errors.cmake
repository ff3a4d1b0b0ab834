# Each case (or, for one, a success): tool, arguments (comma-separated), expected exit code, a text
# the output must contain. @S@ stands for the samples, @D@ for the test
# data, @W@ for a scratch directory.
cmake_policy(VERSION 3.25)
file(MAKE_DIRECTORY ${WORK})
file(WRITE ${WORK}/a-file "")
set(cases
  "inspect||2|required"
  "inspect|--no-such-option,@S@/module.kelb|2|--no-such-option"
  "inspect|--help|0|Exit codes"
  "inspect|--version|0|cmc-inspect (ej_cmc_parser) ${VERSION}"
  "inspect|@W@/missing.kelb|3|cannot open @W@/missing.kelb"
  "inspect|@W@/bad_checksum.kelb|4|container rejected: checksum"
  "inspect|@W@/bad_size_field.kelb|4|container rejected: size field"
  "inspect|@W@/rule_b.kelb|0|checksum_rules: [B]"
  "inspect|@S@/module_nvm.json|4|container rejected: size field"
  "inspect|@S@/module.kelb,--nvm,@S@/module.kelb|5|NVM blob rejected by the NVM library (code 3)"
  "inspect|@S@/module.kelb,--png,@W@/a-file/pictures|7|cannot create directory"
  "inspect|@W@/clean.kelb,--lint|0|slots"
  "inspect|@S@/module.kelb,--nvm,@S@/module.nvm,--lint|8|lint: 1 record event(s) (dropped, shortened or ignored), 136 lens-shading sample(s) wrapped"
  "inspect|@W@/truncated_record.kelb,--lint|8|lint: 1 record event(s)"
  "pack||2|required"
  "pack|--help|0|Exit codes"
  "pack|--version|0|cmc-pack (ej_cmc_parser) ${VERSION}"
  "pack|@W@/missing.json,-o,@W@/x|3|cannot open @W@/missing.json"
  "pack|@S@/module.json,-o,@W@/a-file/x|3|cannot create @W@/a-file/x"
  "pack|@D@/not_json.json,-o,@W@/x|6|@D@/not_json.json: not valid JSON: parse error at line 3"
  "pack|@D@/bad_version.json,-o,@W@/x|6|$.records[1].version: expected an integer 0..255, found 300"
  "pack|@D@/bad_offset.json,-o,@W@/x|6|$.records[0].fields[1].at: expected the field's record offset, which is 10, found 12"
  "pack|@D@/bad_field_type.json,-o,@W@/x|6|$.records[0].fields[0].u32[1]: expected an integer 0..4294967295, found \"two\""
  "pack|--nvm,@D@/bad_nvm.json,-o,@W@/x|6|$.lens_shading.tables[0].channels: expected an array of 4 channel tables"
  "pack|@S@/module_nvm.json,-o,@W@/x|6|$.format: expected \"kelb-container\", found \"nvm-blob\"")

# Containers built by cmc-pack: two the parser rejects, one sealed by rule B, one
# with a record too short for its counts, one without any finding.
foreach(name bad_checksum bad_size_field rule_b truncated_record clean)
  execute_process(COMMAND ${PACK} ${DATA}/${name}.json -o ${WORK}/${name}.kelb RESULT_VARIABLE rc)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmc-pack ${name}.json exited with ${rc}")
  endif()
endforeach()

set(failures 0)
foreach(case IN LISTS cases)
  string(REPLACE "|" ";" parts "${case}")
  list(GET parts 0 tool)
  list(GET parts 1 args)
  list(GET parts 2 want_rc)
  list(GET parts 3 want_text)
  foreach(var args want_text)
    string(REPLACE "@S@" "${SAMPLES}" ${var} "${${var}}")
    string(REPLACE "@D@" "${DATA}" ${var} "${${var}}")
    string(REPLACE "@W@" "${WORK}" ${var} "${${var}}")
  endforeach()
  string(REPLACE "," ";" args "${args}")
  if(tool STREQUAL "pack")
    set(exe ${PACK})
  else()
    set(exe ${INSPECT})
  endif()
  execute_process(COMMAND ${exe} ${args} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  string(FIND "${out}${err}" "${want_text}" found)
  if(NOT rc EQUAL want_rc OR found EQUAL -1)
    message(SEND_ERROR "${tool} ${args}: exit ${rc} (want ${want_rc}), output:\n${out}${err}\n"
                       "(want it to contain: ${want_text})")
    math(EXPR failures "${failures} + 1")
  endif()
endforeach()
if(failures)
  message(FATAL_ERROR "${failures} cases failed")
endif()
