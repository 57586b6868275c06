/// The tables of the benchmark of streams. Each function registers the rows of one.
#pragma once

namespace OX::benchmarks {

void addSmallCalls();
void addImages();
void addPeerImages();
void addNewFrames();
/// pSeconds: how long frames come.
void addReceipts(int pSeconds);
void addLoads(int pSeconds);

}  // namespace OX::benchmarks
