"""The API document as the contract checks read it: its operations by path
and method, and JSON Schema validators for the schemas it refers to (Debian's
python3-jsonschema, draft 2020-12, the dialect of OpenAPI 3.1)."""
import json
import re

import jsonschema


class ApiDocument:
    def __init__(self, path):
        with open(path, encoding="utf-8") as f:
            self.doc = json.load(f)
        self.resolver = jsonschema.RefResolver.from_schema(self.doc)
        self.templates = []
        for path_name in self.doc["paths"]:
            pattern = "^" + re.sub(r"\\\{[^}]+\\\}", "([0-9]+)", re.escape(path_name)) + "$"
            self.templates.append((re.compile(pattern), path_name))

    def resolve(self, node):
        """The object a {"$ref"} stands for (followed to the end), or the node itself."""
        while isinstance(node, dict) and "$ref" in node:
            node = self.resolver.resolve(node["$ref"])[1]
        return node

    def path_item(self, path):
        """The documented path that `path` (without query) matches, and its item; (None, None) when none."""
        for pattern, name in self.templates:
            if pattern.match(path):
                return name, self.doc["paths"][name]
        return None, None

    def validator(self, schema):
        return jsonschema.Draft202012Validator(schema, resolver=self.resolver)

    def errors(self, schema, instance):
        return [f"{'/'.join(map(str, e.absolute_path)) or '(root)'}: {e.message}"
                for e in self.validator(schema).iter_errors(instance)]

    def response_schema(self, response):
        return self.resolve(response)["content"]["application/json"]["schema"]

    def component_response(self, name):
        return self.doc["components"]["responses"][name]

    def request_schema(self, operation):
        body = self.resolve(operation.get("requestBody"))
        return body["content"]["application/json"]["schema"] if body else None

    def api_operations(self):
        """(path, method, operation) of every operation of the module's resources."""
        for path, item in self.doc["paths"].items():
            if path.startswith("/api/isp/"):
                for method, operation in item.items():
                    yield path, method, operation

    @staticmethod
    def methods(item):
        return [m.upper() for m in item if m in ("get", "put", "post", "delete", "patch", "head", "options")]
