///////////////////////////////////////////////////////////////////////////////
// THIS FILE IS IMMUTABLE. DO NOT EDIT IN ANY CASE.                          //
///////////////////////////////////////////////////////////////////////////////

// A snapshot of the interface as frozen at version 1. The build compares the sources with it
// and refuses any change; a new version is frozen beside it, never edited into it.

package vendor.norvo.hardware.vela;
@VintfStability
parcelable VelaRequestParcel {
  int requestType;
  vendor.norvo.hardware.vela.VelaRequestData[] requestDatas;
  boolean optionFlag;
  int param4;
  int param6;
  long param2;
  @nullable String[] paths;
  int param1;
  @nullable vendor.norvo.hardware.vela.IVelaCallback callback;
  @nullable String packageName;
  @nullable String identity;
  @nullable long[] extraValues;
}
