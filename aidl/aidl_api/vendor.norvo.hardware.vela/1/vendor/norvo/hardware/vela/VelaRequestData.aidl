package vendor.norvo.hardware.vela;
parcelable VelaRequestData {
  int id;
  int param;
  @nullable String value;
  @nullable String value2;
  @nullable String value3;
}
