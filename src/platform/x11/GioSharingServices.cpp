#include "platform/x11/GioSharingServices.h"

// GLib's headers name struct fields "signals", which Qt defines as a keyword.
#pragma push_macro("signals")
#undef signals
#include <gio/gio.h>
#pragma pop_macro("signals")

#include <cstring>
#include <memory>

namespace pixmora {

namespace {

constexpr const char *pngType = "image/png";

struct ObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename T>
using GioObject = std::unique_ptr<T, ObjectUnref>;

struct ListFree {
    void operator()(GList *list) const { g_list_free_full(list, g_object_unref); }
};
using AppInfoList = std::unique_ptr<GList, ListFree>;

QString fromUtf8(const char *text)
{
    return text ? QString::fromUtf8(text) : QString();
}

QString iconNameOf(GAppInfo *info)
{
    GIcon *icon = g_app_info_get_icon(info);  // owned by the info
    if (!icon || !G_IS_THEMED_ICON(icon))
        return {};
    const gchar *const *names = g_themed_icon_get_names(G_THEMED_ICON(icon));
    return names && names[0] ? QString::fromUtf8(names[0]) : QString();
}

bool supportsPng(GAppInfo *info)
{
    const char **types = g_app_info_get_supported_types(info);
    for (; types && *types; ++types) {
        if (std::strcmp(*types, pngType) == 0)
            return true;
    }
    return false;
}

bool listed(GList *list, GAppInfo *info)
{
    for (; list; list = list->next) {
        if (g_app_info_equal(static_cast<GAppInfo *>(list->data), info))
            return true;
    }
    return false;
}

// Those the MIME cache names, and those whose own entry lists PNG: without
// desktop-file-utils there is no cache, and GIO finds none.
AppInfoList pngAppInfos()
{
    GList *found = g_app_info_get_all_for_type(pngType);
    AppInfoList all(g_app_info_get_all());
    for (GList *item = all.get(); item; item = item->next) {
        auto *info = static_cast<GAppInfo *>(item->data);
        if (supportsPng(info) && !listed(found, info))
            found = g_list_append(found, g_object_ref(info));
    }
    return AppInfoList(found);
}

} // namespace

std::vector<SharingServices::Application> GioSharingServices::pngApplications()
{
    AppInfoList all = pngAppInfos();
    GioObject<GAppInfo> preferred(g_app_info_get_default_for_type(pngType, FALSE));
    std::vector<Application> result;
    for (GList *item = all.get(); item; item = item->next) {
        auto *info = static_cast<GAppInfo *>(item->data);
        const char *id = g_app_info_get_id(info);
        // Only applications a menu would show, and that can be found again by id.
        if (!id || !g_app_info_should_show(info))
            continue;
        Application application{fromUtf8(id), fromUtf8(g_app_info_get_display_name(info)), iconNameOf(info)};
        if (preferred && g_app_info_equal(info, preferred.get()))
            result.insert(result.begin(), std::move(application));
        else
            result.push_back(std::move(application));
    }
    return result;
}

std::optional<QString> GioSharingServices::openWith(const QString &applicationId, const QString &path)
{
    AppInfoList all = pngAppInfos();
    const QByteArray id = applicationId.toUtf8();
    GAppInfo *info = nullptr;
    for (GList *item = all.get(); item && !info; item = item->next) {
        const char *candidate = g_app_info_get_id(static_cast<GAppInfo *>(item->data));
        if (candidate && id == candidate)
            info = static_cast<GAppInfo *>(item->data);
    }
    if (!info)
        return QStringLiteral("No application \"%1\" opens PNG images.").arg(applicationId);

    GioObject<GFile> file(g_file_new_for_path(path.toLocal8Bit().constData()));
    GList files{file.get(), nullptr, nullptr};
    GError *error = nullptr;
    if (g_app_info_launch(info, &files, nullptr, &error))
        return std::nullopt;
    const QString reason = error ? QString::fromUtf8(error->message) : QStringLiteral("it did not start");
    g_clear_error(&error);
    return reason;
}

} // namespace pixmora
