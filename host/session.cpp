#include "host/session.h"

#include "platform/support/plist.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace printprep {

namespace {

// A finite number under `key`; false (with the reason) when it is missing or not a number.
bool number(const voPLST::Dictionary& record, const char* key, double& out, std::string& error) {
  const voPLST::Item* item = record.find(key);
  if (!item) {
    error = std::string("no \"") + key + "\"";
    return false;
  }
  if (item->kind() != voPLST::Kind::Double || !std::isfinite(item->value().toDouble())) {
    error = std::string("\"") + key + "\" is not a number";
    return false;
  }
  out = item->value().toDouble();
  return true;
}

// A whole number under `key`.
bool integer(const voPLST::Dictionary& record, const char* key, int& out, std::string& error) {
  double value = 0.0;
  if (!number(record, key, value, error)) return false;
  if (value != std::floor(value) || std::abs(value) > 1e9) {
    error = std::string("\"") + key + "\" is not a whole number";
    return false;
  }
  out = static_cast<int>(value);
  return true;
}

bool point(const voPLST::Dictionary& record, voEV::Point& out, std::string& error) {
  const voPLST::Item* item = record.find("position");
  if (!item) {
    error = "no \"position\"";
    return false;
  }
  const voPLST::Array* array = item->asArray();
  if (!array || array->size() != 2 || array->at(0)->kind() != voPLST::Kind::Double ||
      array->at(1)->kind() != voPLST::Kind::Double) {
    error = "\"position\" is not two numbers";
    return false;
  }
  const double x = array->at(0)->value().toDouble(), y = array->at(1)->value().toDouble();
  if (!std::isfinite(x) || !std::isfinite(y) || std::abs(x) > 1e9 || std::abs(y) > 1e9) {
    error = "\"position\" is out of range";
    return false;
  }
  out = voEV::Point(static_cast<std::int32_t>(x), static_cast<std::int32_t>(y));
  return true;
}

ru::Reference<voPLST::Array> pointItem(const voEV::Point& p) {
  ru::Reference<voPLST::Array> array = new voPLST::Array();
  array->appendDouble(p.x);
  array->appendDouble(p.y);
  return array;
}

std::string named(const std::string& path, const std::string& what) { return path + ": " + what; }

}  // namespace

ru::Reference<voPLST::Item> sessionRecord(const voEV::Event& event) {
  const voEV::EventType type = event.getType();
  if (const auto* key = dynamic_cast<const voEV::KeyEvent*>(&event)) {
    ru::Reference<voPLST::Dictionary> record = new voPLST::Dictionary();
    record->setDouble("type", type);
    record->setString("key", voEV::asString(key->getKeyCode()));
    record->setDouble("modifierMask", key->getModifierMask());
    record->setBool("repeat", key->isRepeat());
    return record;
  }
  if (const auto* wheel = dynamic_cast<const voEV::WheelEvent*>(&event)) {
    ru::Reference<voPLST::Dictionary> record = new voPLST::Dictionary();
    record->setDouble("type", type);
    record->setDouble("buttonMask", wheel->getButtonMask());
    record->setDouble("modifierMask", wheel->getModifierMask());
    record->set("position", pointItem(wheel->getPosition()));
    record->setDouble("delta", wheel->getDelta());
    return record;
  }
  if (const auto* mouse = dynamic_cast<const voEV::MouseEvent*>(&event)) {
    if (type == voEV::MouseHover) {
      ru::Reference<voPLST::Dictionary> record = new voPLST::Dictionary();
      record->setDouble("type", type);
      record->setDouble("buttonMask", mouse->getButtonMask());
      record->setDouble("modifierMask", mouse->getModifierMask());
      record->set("position", pointItem(mouse->getPosition()));
      return record;
    }
    return voEV::asPList(event);
  }
  return nullptr;
}

ru::Reference<voEV::Event> sessionEvent(const voPLST::Item& item, std::string& error) {
  const voPLST::Dictionary* record = item.asDictionary();
  if (!record) {
    error = "the record is not an object";
    return nullptr;
  }
  int type = 0;
  if (!integer(*record, "type", type, error)) return nullptr;
  int buttonMask = 0, modifierMask = 0;
  voEV::Point position;
  switch (type) {
    case voEV::MouseButtonPress:
    case voEV::MouseButtonRelease:
    case voEV::MouseMove:
    case voEV::MouseMotion: {
      int button = 0, clickCount = 0;
      double timestamp = 0.0;
      if (!integer(*record, "button", button, error) || !integer(*record, "buttonMask", buttonMask, error) ||
          !integer(*record, "modifierMask", modifierMask, error) || !integer(*record, "clickCount", clickCount, error) ||
          !point(*record, position, error) || !number(*record, "timestamp", timestamp, error))
        return nullptr;
      ru::Reference<const voPLST::Item> keep(&item);
      ru::Reference<voEV::Event> event = voEV::asEvent(keep);
      if (!event) error = "the mouse record cannot be read";
      return event;
    }
    case voEV::MouseHover:
      if (!integer(*record, "buttonMask", buttonMask, error) || !integer(*record, "modifierMask", modifierMask, error) ||
          !point(*record, position, error))
        return nullptr;
      return voEV::MouseEvent::create(voEV::MouseHover, 0, buttonMask, modifierMask, 0, position, 0.0);
    case voEV::Wheel: {
      int delta = 0;
      if (!integer(*record, "buttonMask", buttonMask, error) || !integer(*record, "modifierMask", modifierMask, error) ||
          !point(*record, position, error) || !integer(*record, "delta", delta, error))
        return nullptr;
      return voEV::WheelEvent::create(voEV::Wheel, buttonMask, modifierMask, position, delta);
    }
    case voEV::KeyPress:
    case voEV::KeyRelease: {
      const voPLST::Item* name = record->find("key");
      if (!name) {
        error = "no \"key\"";
        return nullptr;
      }
      voEV::KeyCode key = voEV::KeyNone;
      if (name->kind() != voPLST::Kind::String || !voEV::getKeyCode(name->value().toString(), key)) {
        error = "\"key\" names no key";
        return nullptr;
      }
      if (!integer(*record, "modifierMask", modifierMask, error)) return nullptr;
      bool repeat = false;
      if (const voPLST::Item* flag = record->find("repeat")) {
        if (flag->kind() != voPLST::Kind::Boolean) {
          error = "\"repeat\" is not true or false";
          return nullptr;
        }
        repeat = flag->value().toBool();
      }
      return voEV::KeyEvent::create(static_cast<voEV::EventType>(type), key, repeat, modifierMask);
    }
    default: {
      const ruString::CString name = voEV::asString(static_cast<voEV::EventType>(type));
      error = "unknown event type " + std::to_string(type) + (name.empty() ? "" : std::string(" (") + name.c_str() + ")");
      return nullptr;
    }
  }
}

bool readSession(const std::string& path, Session& session, std::string& error) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = named(path, "cannot read the file");
    return false;
  }
  std::ostringstream text;
  text << in.rdbuf();
  ruString::CString why;
  ru::Reference<voPLST::Item> root = voPLST::fromJSON(text.str(), &why);
  if (!root) {
    error = named(path, std::string("not JSON: ") + why.c_str());
    return false;
  }
  const voPLST::Dictionary* top = root->asDictionary();
  if (!top) {
    error = named(path, "not a session (the JSON is no object)");
    return false;
  }
  Session out;
  std::string what;
  auto numbers = [&](const char* key, std::size_t count, std::vector<double>& values) {
    const voPLST::Item* item = top->find(key);
    if (!item) return true;
    const voPLST::Array* array = item->asArray();
    bool ok = array && array->size() == count;
    values.clear();
    for (std::size_t i = 0; ok && i < count; ++i) {
      ok = array->at(i)->kind() == voPLST::Kind::Double && std::isfinite(array->at(i)->value().toDouble()) &&
           array->at(i)->value().toDouble() > 0.0;
      if (ok) values.push_back(array->at(i)->value().toDouble());
    }
    if (!ok) what = "\"" + std::string(key) + "\" is not " + std::to_string(count) + " positive numbers";
    return ok;
  };
  std::vector<double> size;
  if (!numbers("size", 2, size) || !numbers("printer", 3, out.printer)) {
    error = named(path, what);
    return false;
  }
  if (out.printer.empty()) out.printer = {100.0, 100.0, 100.0};
  if (!size.empty()) {
    if (size[0] != std::floor(size[0]) || size[1] != std::floor(size[1]) || size[0] > 8192 || size[1] > 8192) {
      error = named(path, "\"size\" is not two whole numbers up to 8192");
      return false;
    }
    out.width = static_cast<int>(size[0]);
    out.height = static_cast<int>(size[1]);
  }
  if (const voPLST::Item* models = top->find("models")) {
    const voPLST::Array* array = models->asArray();
    if (!array) {
      error = named(path, "\"models\" is not a list of file names");
      return false;
    }
    for (const auto& model : *array) {
      if (model->kind() != voPLST::Kind::String) {
        error = named(path, "\"models\" is not a list of file names");
        return false;
      }
      out.models.push_back(model->value().toString().c_str());
    }
  }
  const voPLST::Item* events = top->find("events");
  if (!events || !events->asArray()) {
    error = named(path, events ? "\"events\" is not a list" : "no \"events\"");
    return false;
  }
  double last = 0.0;
  std::size_t index = 0;
  for (const auto& entry : *events->asArray()) {
    const std::string where = "event " + std::to_string(index++) + ": ";
    const voPLST::Dictionary* fields = entry->asDictionary();
    if (!fields) {
      error = named(path, where + "not an object");
      return false;
    }
    SessionEntry item;
    if (!number(*fields, "time", item.time, what)) {
      error = named(path, where + what);
      return false;
    }
    if (item.time < last) {
      error = named(path, where + "\"time\" goes back");
      return false;
    }
    last = item.time;
    const voPLST::Item* record = fields->find("event");
    if (!record) {
      error = named(path, where + "no \"event\"");
      return false;
    }
    item.event = sessionEvent(*record, what);
    if (!item.event) {
      error = named(path, where + what);
      return false;
    }
    out.events.push_back(item);
  }
  session = std::move(out);
  return true;
}

bool writeSession(const std::string& path, const Session& session, std::string& error) {
  ru::Reference<voPLST::Dictionary> top = new voPLST::Dictionary();
  top->setDouble("printprep-session", 1);
  ru::Reference<voPLST::Array> size = new voPLST::Array();
  size->appendDouble(session.width);
  size->appendDouble(session.height);
  top->set("size", size);
  ru::Reference<voPLST::Array> printer = new voPLST::Array();
  for (double value : session.printer) printer->appendDouble(value);
  top->set("printer", printer);
  ru::Reference<voPLST::Array> models = new voPLST::Array();
  for (const std::string& model : session.models) models->append(new voPLST::String(model.c_str()));
  top->set("models", models);
  ru::Reference<voPLST::Array> events = new voPLST::Array();
  for (const SessionEntry& entry : session.events) {
    ru::Reference<voPLST::Item> record = sessionRecord(*entry.event);
    if (!record) continue;
    ru::Reference<voPLST::Dictionary> item = new voPLST::Dictionary();
    item->setDouble("time", entry.time);
    item->set("event", record);
    events->append(item);
  }
  top->set("events", events);
  const std::string partial = path + ".partial";
  {
    std::ofstream out(partial, std::ios::binary);
    out << voPLST::toJSON(*top, true).c_str() << '\n';
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      error = named(path, "cannot write the file");
      return false;
    }
  }
  std::error_code code;
  std::filesystem::rename(partial, path, code);
  if (code) {
    std::filesystem::remove(partial, code);
    error = named(path, "cannot write the file");
    return false;
  }
  return true;
}

std::string sessionModelPath(const std::string& sessionPath, const std::string& file) {
  const std::filesystem::path model(file);
  if (model.is_absolute()) return file;
  return (std::filesystem::path(sessionPath).parent_path() / model).lexically_normal().string();
}

}  // namespace printprep
