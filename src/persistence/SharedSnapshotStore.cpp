#include "SharedSnapshotStore.h"
