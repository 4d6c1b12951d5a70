// The table service is templates over key and entry; this source gives its target an object file.
#include "table-service/VestaMap.h"
