// Addresses as the system's sockaddr structures, whose names are the same everywhere while the headers are
// not: each platform's source includes its own, and then this. Before it, it defines:
//   bool _network_scope_from_text(const char *text, u32 *scope);  // the interface behind a `%`
//   void _network_scope_to_text(u32 scope, utf8_buf_t *out);      // appends it
//   _network_info_t                                               // the system's addrinfo
//   i32 _network_ask(host, service, hints, list);                 // its getaddrinfo; 0, or an error number
//   void _network_give_back(_network_info_t *list);
//   NETWORK_NOT_FOUND                                             // the error number of no address at all

static constexpr u32 ADDRESS_TEXT_SIZE = 128;

static bool _network_address_take(network_address_t *out, const void *bytes, size_t size, int family) {
    if ((family != AF_INET || size < sizeof(sockaddr_in)) &&
        (family != AF_INET6 || size < sizeof(sockaddr_in6)))
        return false;
    *out = {};
    out->family = family == AF_INET ? NETWORK_FAMILY_IP4 : NETWORK_FAMILY_IP6;
    out->system_family = family;
    out->protocol = IPPROTO_TCP;
    out->socket_type = SOCK_STREAM;
    out->size = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    std::memcpy(out->bytes, bytes, out->size);
    return true;
}

// Those of a list of the system's that are addresses of the two families.
static u32 _network_address_take_list(const _network_info_t *list, network_address_t *out, u32 capacity) {
    u32 count = 0;
    for (; list && count < capacity; list = list->ai_next) {
        if (!_network_address_take(&out[count], list->ai_addr, static_cast<size_t>(list->ai_addrlen),
                                   list->ai_family))
            continue;
        out[count].protocol = list->ai_protocol;
        out[count].socket_type = list->ai_socktype;
        count++;
    }
    return count;
}

u32 network_lookup(const char *host, u32 port, bool to_listen, network_address_t *out, u32 capacity,
                   i32 *error) {
    *error = 0;
    if (capacity && network_parse_address(host, static_cast<u32>(std::strlen(host)), port, out))
        return 1;
    _network_info_t hints = {};
    hints.ai_flags = to_listen ? AI_PASSIVE : 0;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    utf8_buf_t service;
    utf8_buf_init(&service);
    utf8_buf_printf(&service, "%u", port);
    _network_info_t *list = nullptr;
    *error = _network_ask(*host ? host : nullptr, service.data, &hints, &list);
    utf8_buf_kill(&service);
    if (*error != 0)
        return 0;
    const u32 count = _network_address_take_list(list, out, capacity);
    _network_give_back(list);
    if (count == 0)
        *error = NETWORK_NOT_FOUND;
    return count;
}

void network_address_get_parts(const network_address_t *address, network_parts_t *parts) {
    *parts = {};
    parts->family = address->family;
    if (address->family == NETWORK_FAMILY_IP4) {
        sockaddr_in raw;
        std::memcpy(&raw, address->bytes, sizeof raw);
        std::memcpy(parts->ip, &raw.sin_addr, sizeof raw.sin_addr);
        parts->port = ntohs(raw.sin_port);
    } else if (address->family == NETWORK_FAMILY_IP6) {
        sockaddr_in6 raw;
        std::memcpy(&raw, address->bytes, sizeof raw);
        std::memcpy(parts->ip, &raw.sin6_addr, sizeof raw.sin6_addr);
        parts->scope = static_cast<u32>(raw.sin6_scope_id);
        parts->port = ntohs(raw.sin6_port);
    }
}

// The port lies at the same place in both.
void network_address_set_port(network_address_t *address, u32 port) {
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    u16 raw = htons(static_cast<u16>(port));
    std::memcpy(address->bytes + offsetof(sockaddr_in, sin_port), &raw, sizeof raw);
}

void network_address_to_text(const network_address_t *address, utf8_buf_t *out) {
    network_parts_t parts;
    network_address_get_host(address, &parts);
    char text[ADDRESS_TEXT_SIZE] = "";
    if (parts.family != NETWORK_FAMILY_NONE)
        inet_ntop(parts.family == NETWORK_FAMILY_IP4 ? AF_INET : AF_INET6, parts.ip, text, sizeof text);
    utf8_buf_copy_string(out, text);
    if (parts.scope) {
        utf8_buf_cat_byte(out, '%');
        _network_scope_to_text(parts.scope, out);
    }
}

static bool _network_parse_ip4(const char *text, u32 port, network_address_t *out) {
    sockaddr_in raw = {};
    raw.sin_family = AF_INET;
    raw.sin_port = htons(static_cast<u16>(port));
    return inet_pton(AF_INET, text, &raw.sin_addr) == 1 &&
           _network_address_take(out, &raw, sizeof raw, AF_INET);
}

// The text is cut at its `%`.
static bool _network_parse_ip6(char *text, u32 port, network_address_t *out) {
    sockaddr_in6 raw = {};
    raw.sin6_family = AF_INET6;
    raw.sin6_port = htons(static_cast<u16>(port));
    u32 scope = 0;
    if (char *percent = std::strchr(text, '%')) {
        *percent = 0;
        if (!_network_scope_from_text(percent + 1, &scope))
            return false;
    }
    raw.sin6_scope_id = scope;
    return inet_pton(AF_INET6, text, &raw.sin6_addr) == 1 &&
           _network_address_take(out, &raw, sizeof raw, AF_INET6);
}

bool network_parse_address(const char *text, u32 length, u32 port, network_address_t *out) {
    bool has_brackets = length >= 2 && text[0] == '[' && text[length - 1] == ']';
    if (has_brackets) {
        text++;
        length -= 2;
    }
    char copy[ADDRESS_TEXT_SIZE];
    if (length >= sizeof copy || std::memchr(text, 0, length) || port > 0xFFFF)
        return false;
    std::memcpy(copy, text, length);
    copy[length] = 0;
    return (!has_brackets && _network_parse_ip4(copy, port, out)) || _network_parse_ip6(copy, port, out);
}
