#include "app/application.h"

platform::CWinApp& platform::Application() {
  static zentpost::CAmbroluxPrintSendApp application;
  return application;
}
