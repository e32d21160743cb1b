// SPDX-License-Identifier: MIT
// The OpenAPI document served at /api/openapi.json against what the console really answers.
#include <set>

#include "console_fixture.h"

namespace {

using json = std::shared_ptr<cJSON>;

const cJSON *member(const cJSON *object, const char *key) { return cJSON_GetObjectItemCaseSensitive(object, key); }

// "#/components/schemas/Vote" resolved in `document`.
const cJSON *resolve(const cJSON *document, const cJSON *schema)
{
    const cJSON *target = member(schema, "$ref");
    if (!cJSON_IsString(target))
        return schema;
    std::string name = std::string(target->valuestring).substr(std::string("#/components/schemas/").size());
    return member(member(member(document, "components"), "schemas"), name.c_str());
}

// The documented path with its parameters filled in, as kConsoleEndpoints writes them.
std::string concrete(std::string path)
{
    for (const auto &[name, value] : {std::pair<std::string, std::string>{"{gr}", "1"}, {"{id}", "7"}, {"{n}", "1"}}) {
        for (size_t at; (at = path.find(name)) != std::string::npos;)
            path.replace(at, name.size(), value);
    }
    return path;
}

std::string upper(std::string text)
{
    for (char &c : text)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

} // namespace

TEST_F(ConsoleTest, OpenApi_ShouldListExactlyTheEndpointsTheConsoleServes)
{
    vask_test::http_answer answer = call("GET", "/api/openapi.json");
    ASSERT_EQ(answer.status, 200);
    ASSERT_TRUE(answer.json) << "not JSON";
    EXPECT_EQ(answer.text("openapi"), "3.0.3");
    std::set<std::pair<std::string, std::string>> documented, served;
    for (const cJSON *path = member(answer.json.get(), "paths")->child; path; path = path->next) {
        for (const cJSON *operation = path->child; operation; operation = operation->next)
            documented.insert({upper(operation->string), concrete(path->string)});
    }
    for (const auto &[method, path] : vask_test::kConsoleEndpoints)
        served.insert({method, path});
    served.insert({"POST", "/api/login"}); // the one endpoint open without a session

    EXPECT_EQ(documented, served);
}

TEST_F(ConsoleTest, OpenApi_ShouldDescribeEachAnswerOfTheConsole)
{
    vask_test::http_answer doc = call("GET", "/api/openapi.json");
    ASSERT_TRUE(doc.json);
    const cJSON *document = doc.json.get();
    for (const cJSON *path = member(document, "paths")->child; path; path = path->next) {
        for (const cJSON *operation = path->child; operation; operation = operation->next) {
            std::string method = upper(operation->string);
            const cJSON *responses = member(operation, "responses");
            const cJSON *ok = member(member(member(responses, "200"), "content"), "application/json");
            if (!ok)
                continue; // the event stream: Events_* test it
            std::string where = method + " " + path->string;
            vask_test::http_answer answer = call(method, concrete(path->string), method == "GET" ? "" : "{}");
            ASSERT_TRUE(member(responses, std::to_string(answer.status).c_str()))
                << where << " answered an undocumented " << answer.status << ": " << answer.body;
            const cJSON *schema = answer.status == 200 ? resolve(document, member(ok, "schema"))
                                                       : resolve(document, member(member(member(
                                                             member(member(document, "components"), "responses"),
                                                             "BadInput"), "content"), "application/json"));
            if (answer.status != 200)
                schema = resolve(document, member(schema, "schema"));
            const cJSON *properties = member(schema, "properties");
            if (!properties || !cJSON_IsObject(answer.json.get()))
                continue;
            for (const cJSON *key = answer.json->child; key; key = key->next)
                EXPECT_TRUE(member(properties, key->string)) << where << ": \"" << key->string << "\" is not documented";
            const cJSON *required = member(schema, "required");
            for (const cJSON *key = required ? required->child : nullptr; key; key = key->next)
                EXPECT_TRUE(member(answer.json.get(), key->valuestring))
                    << where << ": documented \"" << key->valuestring << "\" is missing in " << answer.body;
        }
    }
}

TEST_F(ConsoleTest, OpenApi_ShouldMatchTheCopyInDocs)
{
    EXPECT_EQ(vask_test::read_text_file(VASK_SOURCE_DIR "/docs/console-openapi.json"), call("GET", "/api/openapi.json").body);
}
