// The status envelope's encoder, shared by every response template instance.
#include "kxapi_business_common.h"

using ResponseStatusCoder = MemberCoder<KXAPI_RESPONSE, KXAPI_RESPONSE_STATUS, NullAlloc, NullDealloc>;
using StatusCodeCoder = MemberCoder<KXAPI_RESPONSE_STATUS, long long, NullAlloc, NullDealloc>;
using StatusStringCoder = MemberCoder<KXAPI_RESPONSE_STATUS, char[128], NullAlloc, NullDealloc>;

template <>
json_object* jsonEncoder<KXAPI_RESPONSE>::encode_nulldata(KXAPI_RESPONSE const& envelope, void* /*unused*/)
{
    json_object* root =
        json_encode_obj(envelope, ResponseStatusCoder(&KXAPI_RESPONSE::ResponseStatus, "ResponseStatus"));
    if (root != nullptr && cJSON_GetObjectItem(root, "ResponseStatus") == nullptr) {
        cJSON_Delete(root);
        return nullptr;
    }
    return root;
}

template KXAPI_EXPORT char* json_encode<KXAPI_RESPONSE>(KXAPI_RESPONSE const&);
template KXAPI_EXPORT json_object* json_encode_obj<KXAPI_RESPONSE, ResponseStatusCoder>(KXAPI_RESPONSE const&,
                                                                                        ResponseStatusCoder);
template KXAPI_EXPORT int json_encode_member<KXAPI_RESPONSE_STATUS, long long, NullAlloc, NullDealloc,
                                             StatusStringCoder>(KXAPI_RESPONSE_STATUS const&, json_object*,
                                                                StatusCodeCoder const&, StatusStringCoder);
