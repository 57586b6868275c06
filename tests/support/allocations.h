/// Counts how often this program has allocated memory with new.
#pragma once

namespace OX::test {

long allocations();

}  // namespace OX::test
