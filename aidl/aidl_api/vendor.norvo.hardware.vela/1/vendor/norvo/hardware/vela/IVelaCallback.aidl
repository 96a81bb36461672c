package vendor.norvo.hardware.vela;
interface IVelaCallback {
  void onCallback(in vendor.norvo.hardware.vela.VelaRequestData[] items);
}
