# Fixture of the Java tests that need real frames (cmake -P): decodes the first
# 60 frames of VIDEO into OUT/png, and has hds-replay replay them in lockstep
# into OUT/replay.csv. Without VIDEO it leaves OUT empty: the tests then skip,
# or fail when CI is set (the rule of tests/support/SampleVideo.h).
file(REMOVE_RECURSE ${OUT})
if(NOT EXISTS ${VIDEO})
  message("${VIDEO} is missing (scripts/samples extracts it)")
  return()
endif()
execute_process(COMMAND ${EXTRACT} --frames 60 ${VIDEO} ${OUT}/png RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "hds-extract-frames failed (${rc})")
endif()
# 10 frames a second; DETECT_ABSENCE from frame 40; the last frame repeated
# without noise for 60 frames; absence after 2000 ms without motion.
execute_process(COMMAND ${REPLAY} ${OUT}/png --config ${CONFIG} --fps 10
    --states 0:DETECT_MOTION,40:DETECT_ABSENCE --hold-last 60 --noise 0 --absence-ms 2000
    --pace lockstep --no-progress --csv ${OUT}/replay.csv
  RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "hds-replay failed (${rc})")
endif()
