///////////////////////////////////////////////////////////////////////////////
// THIS FILE IS IMMUTABLE. DO NOT EDIT IN ANY CASE.                          //
///////////////////////////////////////////////////////////////////////////////

// A snapshot of the interface as frozen at version 1. The build compares the sources with it
// and refuses any change; a new version is frozen beside it, never edited into it.

package vendor.norvo.hardware.vela;
@VintfStability
parcelable VelaRequestData {
  int id;
  int param;
  @nullable String value;
  @nullable String value2;
  @nullable String value3;
}
