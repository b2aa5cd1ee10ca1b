// What the lines of facts.inc become: entries of the map `facts`.
#define STRUCTURE(type)                                      \
  facts["sizeof(" #type ")"] = std::to_string(sizeof(type)); \
  facts["alignof(" #type ")"] = std::to_string(alignof(type));
#define MEMBER(type, member) \
  facts["offsetof(" #type ", " #member ")"] = std::to_string(offsetof(type, member));
#define NUMBER(name) facts[#name] = std::to_string(static_cast<std::uint32_t>(name));
#define IDENTIFIER(name) facts[#name] = Bytes(&(name), sizeof(name));
#define FUNCTION(name) facts[#name] = FunctionShape(FUNCTION_OF(name));
#define METHOD(type, name) \
  facts[#type "::" #name] = SlotOf(&type::name) + ": " + MethodShape(&type::name);
#define UNUSED(type, name) facts[#type "::" #name] = SlotOf(&type::UNUSED_NAME(name));
