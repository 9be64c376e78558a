// Stable region selection on the tree of a watershed tree builder: the
// regions are the payloads of the nodes.
#include <sorn.h>

#include "region/stable_regions.h"

using namespace sorn::region;

extern "C" {

int32_t _T_DetectMSERs(SornVec *vector, SornAGTnode *node, const SornMSERParams *params) {
  return detect<TreeNodes>(vector, node, params);
}

void _T_RemoveMSERDuplicates(SornAGTnode *node, SornAGTnode *list, float threshold) {
  remove_duplicates<TreeNodes>(node, list, threshold);
}

SornVec *SornDetectMSERs(SornVec *vector, const SornSTree *tree, const SornMSERParams *params) {
  if (tree == nullptr) return vector;
  return detect_from<TreeNodes>(vector, tree->root, params);
}

}  // extern "C"
