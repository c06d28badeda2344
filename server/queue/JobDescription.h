// What the server reads out of a submitted job's message ('KTJA'). Pure functions over hostile
// input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "core/protocol/Codes.h"
#include "core/schedule/Schedule.h"
#include "kit/message/BMessage.h"
#include "server/archive/KeyFile.h"
#include "server/queue/Series.h"

namespace server::description {

// The description as it is kept: of fields that were added repeatedly the one value that counts
// (the last "client_id", else the first), nothing that is the client's own affair, no password at
// any depth, and no protection and no series that the server did not make.
BMessage Cleaned(const BMessage& submitted);

// "job_type", full where there is none; nothing when it is of no known kind.
std::optional<core::JobType> TypeOf(const BMessage& description);
int32_t RawTypeOf(const BMessage& description);  // as sent, for the report about an unknown one
std::string TitleOf(const BMessage& description);
bool IsOnHold(const BMessage& description);
bool WantsProtection(const BMessage& description);  // "passonoff" 1
bool HasPassword(const BMessage& description);      // a password that is not empty
archive::Secret PasswordOf(const BMessage& description);

// What takes the password's place in a job that is kept: with it the backup can be sealed, but not
// opened.
void SetProtection(BMessage& description, const archive::Protection& protection);
void RemoveProtection(BMessage& description);
std::optional<archive::Protection> ProtectionOf(const BMessage& description);

core::Schedule ScheduleOf(const BMessage& description);
Series SeriesOf(const BMessage& description);
void SetSeries(BMessage& description, const Series& series);
void RemoveSeries(BMessage& description);
void SetDue(BMessage& description, int64_t due);  // "TIME" of the schedule
// Takes a job into the plan that was just submitted, or edited from `former`: a start that lies
// ahead is moved off the excluded days, and a repeating job's series begins there. What was not
// edited goes on as it was.
void Plan(BMessage& description, int64_t now, const core::Zone& zone,
          const BMessage* former = nullptr);
void EndSeries(BMessage& description);  // it repeats no more

// Jobs with the same key use the same destination. Two spellings of one directory give one key.
std::string DestinationOf(const BMessage& description);

// A job as an editor sends it back, in place of `former`: a top-level "title" becomes the one of
// the start information; who submitted it, and whether it is protected, stays.
BMessage Edited(const BMessage& former, const BMessage& edited);

}  // namespace server::description
