/// The tables of the benchmark of streams. Each function registers the rows of one.
#pragma once

namespace OX::benchmarks {

void addSmallCalls();
void addImages();
void addPeerImages();

}  // namespace OX::benchmarks
