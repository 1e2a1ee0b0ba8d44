// Internal: lets tests drop the current source, as a new process would start.
#pragma once

namespace zif {
void resetSource();
}
