// Replaced by the memory stacks.
