// The motion thread's analysis of one frame when the client runs scene guards:
// the guards instead of the motion detector, the same vote filter, motion
// status and output record as without them. Motion thread only.
#pragma once

#include "hdsml_export.h"
#include "motion/GuardReport.h"

class FrameData;
class HDSMLClient;

namespace hdsml {

class SceneGuards;

// A frame that casts no vote (compared across a whole-picture change) leaves
// the filter as it is; its decision is the filter's as it stands.
void analyseGuarded(HDSMLClient& client, FrameData& frame, SceneGuards& guards);

// The step both analyses end with: the debug lines of the regions, the vote
// (unless the frame casts none) into the filter, the decision, the motion
// status and the output record. Motion thread only.
void publishVote(HDSMLClient& client, bool voted, bool vote, long long timestamp);

// The guards' report on the client's last analysed frame, for the replay
// tools; false (and `out` untouched) for a client without guards. Any thread.
HDSML_EXPORT bool lastGuardReport(const HDSMLClient& client, GuardReport& out);

}  // namespace hdsml
