/* A camera library that has the calls, but neither our node map nor its marker. */
#define CALL(name) \
  int name(void) { \
    return -1;     \
  }
CALL(GevApiInitialize)
CALL(GevApiUninitialize)
CALL(_CloseSocketAPI)
CALL(GevGetCameraList)
CALL(GevOpenCamera)
CALL(GevCloseCamera)
CALL(GevGetCameraInterfaceOptions)
CALL(GevSetCameraInterfaceOptions)
CALL(GevGetFeatureNodeMap)
CALL(GevGetFeatureValue)
CALL(GevSetFeatureValue)
CALL(GevStartTransfer)
CALL(GevAbortTransfer)
CALL(GevFreeTransfer)
CALL(GevWaitForNextFrame)
CALL(GevReleaseFrame)
