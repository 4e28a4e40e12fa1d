-- For pandoc: the page's title is its first heading; a link to another document leads to its page, a
-- link to any other file of the repository to the copy of it on the site.

function Link(link)
  local path, anchor = link.target:match("^([^#]*)(.*)$")
  if path == "" or path:match("^%a[%w+.-]*:") then
    return nil
  elseif path:match("%.md$") then
    path = path:gsub("%.md$", ".html")
  elseif path:match("%.%d$") then
    path = path .. ".html"
  else
    path = path .. ".txt"
  end
  link.target = path .. anchor
  return link
end

function Pandoc(document)
  for _, block in ipairs(document.blocks) do
    if block.t == "Header" then
      document.meta.pagetitle = pandoc.utils.stringify(block)
      break
    end
  end
  return document
end
