// The table service consists of templates over key and entry; this source gives its target an object file.
#include "table-service/VestaMap.h"
