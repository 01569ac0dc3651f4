#pragma once

// The policy document (-PolicyDisplayXml): every packet and then every stream policy as the
// elements the document reader takes back. The writer adds no declaration and escapes only
// what RenderMatch escapes, so its bytes are the format itself.

#include <cstdint>

#include "core/interfaces.h"

namespace nw {

/// Writes one type's policies. A failing list query prints its message, stores its status in
/// LastStatus and writes nothing; a policy that cannot be fetched is reported and ends the
/// type. Otherwise LastStatus ends as the last core call that sets it left it.
void WritePoliciesOfType(IPolicyManager* manager, int32_t policyType);

}  // namespace nw
