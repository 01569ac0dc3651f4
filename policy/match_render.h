#pragma once

// One match of a rule or an aggregate match, read through the core's match interfaces and
// printed either as the indented block of the text listings or as the match elements of the
// policy document. Which getter reads a term, and how its value is written, follows from the
// match type and, for ports and interface indexes, from the operator alone.

#include "core/interfaces.h"

namespace nw {

/// RenderMatch's modes.
inline constexpr int kRenderText = 0;
inline constexpr int kRenderXml = 1;

/// Prints match in mode kRenderText or kRenderXml. In XML each term is one complete <match>
/// element, also after a failed getter; a match without terms prints nothing in XML. Every
/// value getter's status is stored in LastStatus (GetCount, GetOperator,
/// GetIpAddressMatchType and GetAggregateUid leave it alone). A failing getter prints its
/// message and ends that term; the next term is still rendered.
///
/// Where the core breaks its side of the contract nothing is read that it did not hand out:
/// an array shorter than the form needs (16 bytes for a hash, 8 for an adapter address) prints
/// its missing positions as zero bytes, a null string prints as an empty one, a null address
/// as a cleared record, a null aggregate identifier as the all-zero one.
void RenderMatch(IMatch* match, int mode);

}  // namespace nw
