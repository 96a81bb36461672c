package vendor.norvo.hardware.vela;
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
