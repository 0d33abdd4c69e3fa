#include "KeychainStore.h"
