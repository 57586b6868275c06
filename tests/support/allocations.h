/// How often this program has asked for memory by new.
#pragma once

namespace OX::test {

long allocations();

}  // namespace OX::test
