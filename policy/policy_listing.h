#pragma once

// The policy model as the text views see it through the core's policy manager: the summary
// (-Summary), the full listing with its two walks (-PolicyDisplay), the presence queries the
// driver evaluation asks, and the delete-all that no command line reaches. Only packet and
// stream policies are ever listed, packet first.

#include <cstdint>

#include "core/interfaces.h"

namespace nw {

/// Fetches the identifiers of policyType's policies into *list and their number into *count
/// (null and 0 on failure). On failure prints "GetExistingPolicyList returned error 0x%X!\n"
/// and returns the status. With printHeader 1 prints how many there are and a line of equals
/// signs. A core that reports success without a list fails here with 0x80004003. Does not
/// touch LastStatus; the caller stores the result.
Status ListPolicies(IPolicyManager* manager, int32_t policyType, IGuidList** list, uint64_t* count,
                    int printHeader);

/// The identifiers of a list fetched by ListPolicies; a null array sets *count to 0.
const Guid* PolicyGuids(IGuidList* list, uint64_t* count);
/// GetExistingPolicy into *policy (null unless it succeeds); a core that reports success
/// without a policy fails with 0x80004003.
Status FetchPolicy(IPolicyManager* manager, const Guid* uid, IPolicy** policy);

/// One type's half of the summary: each policy's identifier, name and three flags. A policy
/// that cannot be fetched is reported and the next one is tried.
void ShowPolicyTypeSummary(IPolicyManager* manager, int32_t policyType);
/// One type's half of the full listing: each policy walked linearly and then, on a freshly
/// fetched object, along its jumps. A policy that cannot be fetched ends the type's listing.
void ShowPolicyType(IPolicyManager* manager, int32_t policyType);

/// Whether packet policies exist. A failing query prints its message and answers true, as if
/// they did. LastStatus is left alone.
bool HasPacketPolicies(IPolicyManager* manager);
/// Whether packet or stream policies exist (stream is asked only when there are no packet
/// policies). A failing query answers true. LastStatus is left alone.
bool HasAnyPolicies(IPolicyManager* manager);

}  // namespace nw
