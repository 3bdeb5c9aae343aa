// The index of an element handle, which encodes state and position at once:
//   index >= 0   the element's position in the library (it may still be awaiting the update
//                when the index is not below the model's count, in immediate update mode);
//   -1           added, waiting for Model.update();
//   -2           removed by an update: the handle is dead;
//   <= -3        removal pending: the element is still at position -index - 3.
// The attribute engine reads it to tell why an element has no values; the Model writes it and
// the handles (elements/handle.h) carry it.
#pragma once

inline constexpr int kIndexPending = -1;
inline constexpr int kIndexRemoved = -2;

// The position an index stands for; -2 for pending and -1 for removed handles, which callers
// treat as "no position".
inline int handle_position(int index) { return index >= 0 ? index : -index - 3; }
