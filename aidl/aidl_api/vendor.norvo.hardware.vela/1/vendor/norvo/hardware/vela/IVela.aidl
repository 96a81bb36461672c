///////////////////////////////////////////////////////////////////////////////
// THIS FILE IS IMMUTABLE. DO NOT EDIT IN ANY CASE.                          //
///////////////////////////////////////////////////////////////////////////////

// A snapshot of the interface as frozen at version 1. The build compares the sources with it
// and refuses any change; a new version is frozen beside it, never edited into it.

package vendor.norvo.hardware.vela;
@VintfStability
interface IVela {
  void init();
  int resCtlRequest(in vendor.norvo.hardware.vela.VelaRequestParcel request);
  int resCtlRelease(int handle);
  vendor.norvo.hardware.vela.VelaRequestData[] resStateRequest(in vendor.norvo.hardware.vela.VelaRequestParcel request);
  int resListeningRegister(in vendor.norvo.hardware.vela.VelaRequestParcel request, vendor.norvo.hardware.vela.IVelaCallback callback);
  int resListeningUnregister(int handle);
  String propertyGet(String key);
  int propertySet(String key, String value);
  int thermalListeningRegister(in int[] ids, vendor.norvo.hardware.vela.IVelaCallback callback);
  int thermalListeningUnregister(int handle);
  int reserved();
  int setRelatedSysInfo(int info, long value);
  int ruleCtl(int ruleId, int status, in vendor.norvo.hardware.vela.VelaRequestData[] items);
}
