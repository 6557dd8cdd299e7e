// vkd3d declares the interface identifiers (IID_ID3D12Heap, ...) but no library defines them: like
// Windows' dxguid, each binary defines the ones it uses. INITGUID turns the declarations into definitions.
#define INITGUID
#include "kivml/gpu/D3D12.h"
